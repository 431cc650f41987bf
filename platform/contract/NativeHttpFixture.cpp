// The web of the native backends: servers on loopback.
#include "platform/contract/HttpFixture.h"

#include "testing/LoopbackServer.h"

#include <memory>
#include <utility>

namespace contract {

namespace {

std::unique_ptr<testing_support::CLoopbackServer> g_server;
std::unique_ptr<testing_support::CClosedPort> g_closedPort;

constexpr wchar_t kLoopback[] = L"127.0.0.1";

} // namespace

Place StartWeb(testing_support::HttpHandler handler)
{
    g_server = std::make_unique<testing_support::CLoopbackServer>(std::move(handler));
    return {kLoopback, g_server->Port()};
}

void StopWeb()
{
    g_server.reset();
    g_closedPort.reset();
}

Place RefusingPlace()
{
    g_closedPort = std::make_unique<testing_support::CClosedPort>();
    return {kLoopback, g_closedPort->Port()};
}

void SendBeforeAnswers(const char* bytes) { g_server->SetPrelude(bytes); }

std::vector<testing_support::HttpExchange> WebExchanges() { return g_server->Exchanges(); }

} // namespace contract
