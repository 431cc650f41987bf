// The simulated machine's web for the contract suite.
#include "platform/contract/HttpFixture.h"
#include "platform/sim/Machine.h"

#include <utility>

namespace contract {

using platform::sim::CMachine;
using testing_support::HttpAnswer;
using testing_support::HttpExchange;
using testing_support::HttpFault;

void UseNoProxy() {}

Place StartWeb(testing_support::HttpHandler handler)
{
    CMachine::Current().SetHttpHandler(std::move(handler));
    return {L"web.example", 8470};
}

void StopWeb() {}

Place RefusingPlace()
{
    return StartWeb([](const HttpExchange&) { return HttpAnswer{.fault = HttpFault::kRefused}; });
}

std::vector<HttpExchange> WebExchanges() { return CMachine::Current().HttpExchanges(); }

bool IsWineInternet() { return false; }

} // namespace contract
