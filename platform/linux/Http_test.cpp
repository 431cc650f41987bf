// What HTTP on Linux does beyond the contract of every backend.
#include "platform/Http.h"

#include "testing/LoopbackServer.h"

#include <chrono>
#include <cstdlib>
#include <gmock/gmock.h>
#include <optional>

namespace platform {
namespace {

using testing::SizeIs;
using testing_support::CLoopbackServer;
using testing_support::HttpAnswer;
using testing_support::HttpExchange;
using testing_support::HttpFault;

// An environment variable set, or with null unset, for a while.
class CVariable {
public:
    CVariable(const char* name, const char* value) : m_name(name)
    {
        if (const char* before = std::getenv(name)) {
            m_before = before;
        }
        Put(value);
    }
    ~CVariable() { Put(m_before ? m_before->c_str() : nullptr); }
    CVariable(const CVariable&) = delete;
    CVariable& operator=(const CVariable&) = delete;

private:
    void Put(const char* value) const
    {
        if (value != nullptr) {
            ::setenv(m_name, value, 1);
        } else {
            ::unsetenv(m_name);
        }
    }

    const char* m_name;
    std::optional<std::string> m_before;
};

class LinuxHttp : public testing::Test {
protected:
    HttpRequestPtr Open(const CString& object = L"/path") const
    {
        return OpenHttpRequest(OpenHttpConnection(m_session, L"127.0.0.1", m_server->Port()), object, 1);
    }

    // The body of a whole answer.
    static std::string BodyOf(const HttpRequestPtr& request)
    {
        std::string body;
        char piece[4096];
        while (const std::size_t size = ReadHttpBody(request, piece, sizeof piece)) {
            body.append(piece, size);
        }
        return body;
    }

    std::string Get(const CString& object = L"/path") const
    {
        const HttpRequestPtr request = Open(object);
        return SendHttpRequest(request) ? BodyOf(request) : "(no answer)";
    }

    const CVariable m_noProxy{"http_proxy", nullptr};
    const CVariable m_noProxyForAll{"all_proxy", nullptr};
    const CVariable m_noProxyForAnything{"ALL_PROXY", nullptr};
    std::optional<CLoopbackServer> m_server;
    HttpSessionPtr m_session = OpenHttpSession(L"Test", 1);
};

TEST_F(LinuxHttp, EscapesWhatCannotStandInARequestLine)
{
    m_server.emplace([](const HttpExchange&) { return HttpAnswer{}; });
    Get(L"/a b?c=\u3042&d=%20\n");
    EXPECT_EQ(m_server->Exchanges().at(0).target, "/a%20b?c=%E3%81%82&d=%20%0A");
}

TEST_F(LinuxHttp, SendsDotsInAPathAsTheyAre)
{
    m_server.emplace([](const HttpExchange&) { return HttpAnswer{}; });
    Get(L"/a/../b/./c");
    EXPECT_EQ(m_server->Exchanges().at(0).target, "/a/../b/./c");
}

TEST_F(LinuxHttp, FollowsTenRedirectionsAndNoMore)
{
    m_server.emplace([](const HttpExchange&) { return HttpAnswer{.status = 302, .headers = {{"Location", "/path"}}}; });
    EXPECT_EQ(Get(), "(no answer)");
    EXPECT_THAT(m_server->Exchanges(), SizeIs(11));
}

TEST_F(LinuxHttp, FollowsRedirectionsToHttpOnly)
{
    std::string location;
    m_server.emplace([&location](const HttpExchange&) {
        return HttpAnswer{.status = 302, .headers = {{"Location", location}}};
    });
    for (const std::string scheme : {"https", "ftp", "gopher", "file"}) {
        location = scheme + "://127.0.0.1:" + std::to_string(m_server->Port()) + "/next";
        const std::size_t before = m_server->Exchanges().size();
        EXPECT_EQ(Get(), "(no answer)") << location;
        EXPECT_THAT(m_server->Exchanges(), SizeIs(before + 1)) << location;
    }
}

TEST_F(LinuxHttp, AsksAgainWhenAKeptConnectionTurnsOutToBeClosed)
{
    m_server.emplace([](const HttpExchange& exchange) {
        const bool isClosed = exchange.connection == 1 && exchange.target == "/second";
        return HttpAnswer{.body = exchange.target, .fault = isClosed ? HttpFault::kClosedEarly : HttpFault::kNone};
    });
    EXPECT_EQ(Get(L"/first"), "/first");
    EXPECT_EQ(Get(L"/second"), "/second");
    EXPECT_EQ(m_server->ConnectionCount(), 2U);
}

TEST_F(LinuxHttp, GivesUpAConnectionWithTooMuchUnread)
{
    m_server.emplace([](const HttpExchange& exchange) {
        return exchange.target == "/large" ? HttpAnswer{.status = 404, .body = std::string(8'000'000, 'x')}
                                           : HttpAnswer{.body = "next"};
    });
    EXPECT_TRUE(SendHttpRequest(Open(L"/large")));
    EXPECT_EQ(Get(), "next");
    EXPECT_EQ(m_server->ConnectionCount(), 2U);
}

TEST_F(LinuxHttp, DoesNotWaitForUnreadBytesThatDoNotCome)
{
    m_server.emplace([](const HttpExchange&) {
        return HttpAnswer{.status = 404, .body = "0123456789", .fault = HttpFault::kStalledBody};
    });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(SendHttpRequest(Open()));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_F(LinuxHttp, RequestsOfOneSessionMayBeReadInTurns)
{
    m_server.emplace([](const HttpExchange& exchange) { return HttpAnswer{.body = exchange.target}; });
    const HttpRequestPtr first = Open(L"/first");
    const HttpRequestPtr second = Open(L"/second");
    EXPECT_TRUE(SendHttpRequest(first));
    EXPECT_TRUE(SendHttpRequest(second));
    EXPECT_EQ(BodyOf(second), "/second");
    EXPECT_EQ(BodyOf(first), "/first");
}

TEST_F(LinuxHttp, ClosedSessionEndsItsTransfers)
{
    m_server.emplace(
        [](const HttpExchange&) { return HttpAnswer{.body = "0123456789", .fault = HttpFault::kStalledBody}; });
    const HttpRequestPtr request = Open();
    EXPECT_TRUE(SendHttpRequest(request));
    CloseHttpSession(m_session);
    char piece[16];
    EXPECT_THROW(while (ReadHttpBody(request, piece, sizeof piece) > 0){}, CInternetException);
    EXPECT_FALSE(SendHttpRequest(Open()));
}

TEST_F(LinuxHttp, TakesAProxyFromTheEnvironment)
{
    m_server.emplace([](const HttpExchange&) { return HttpAnswer{.body = "from the proxy"}; });
    const std::string url = "http://127.0.0.1:" + std::to_string(m_server->Port());
    const CVariable proxy("http_proxy", url.c_str());
    const CVariable noException("no_proxy", nullptr);
    const CVariable noOtherException("NO_PROXY", nullptr);
    const HttpRequestPtr request = OpenHttpRequest(OpenHttpConnection(m_session, L"web.invalid", 8470), L"/path", 1);
    ASSERT_TRUE(SendHttpRequest(request));
    EXPECT_EQ(BodyOf(request), "from the proxy");
    EXPECT_EQ(m_server->Exchanges().at(0).target, "http://web.invalid:8470/path");
}

struct ConnectedState {
    BOOL result;
    DWORD flags;

    bool operator==(const ConnectedState&) const = default;
};

ConnectedState ConnectedStateWith(const char* variable)
{
    const CVariable state("AMPORA_CONNECTED_STATE", variable);
    ConnectedState answer{77, 77};
    answer.result = QueryConnectedState(&answer.flags);
    return answer;
}

TEST(LinuxConnectedState, VariableAnswersInstead)
{
    EXPECT_EQ(ConnectedStateWith("2"), (ConnectedState{TRUE, 2}));
    EXPECT_EQ(ConnectedStateWith("0"), (ConnectedState{TRUE, 0}));
    EXPECT_EQ(ConnectedStateWith("0x22"), (ConnectedState{TRUE, 34}));
    EXPECT_EQ(ConnectedStateWith("fail"), (ConnectedState{FALSE, 0}));
}

TEST(LinuxConnectedState, VariableWithoutMeaningIsIgnored)
{
    const ConnectedState own = ConnectedStateWith(nullptr);
    EXPECT_EQ(ConnectedStateWith(""), own);
    EXPECT_EQ(ConnectedStateWith("on"), own);
    EXPECT_EQ(ConnectedStateWith("2 bits"), own);
}

TEST(LinuxConnectedState, NetworkIsALanOrNothing)
{
    const ConnectedState own = ConnectedStateWith(nullptr);
    EXPECT_EQ(own.flags, own.result ? kConnectionLan : 0U);
}

} // namespace
} // namespace platform
