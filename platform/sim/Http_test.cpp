#include "platform/Http.h"
#include "platform/LastError.h"
#include "platform/sim/Machine.h"
#include "platform/Sync.h"
#include "testing/TestThread.h"

#include <gmock/gmock.h>

namespace platform::sim {
namespace {

using testing::ElementsAre;
using testing_support::HttpAnswer;
using testing_support::HttpExchange;
using testing_support::HttpFault;
using testing_support::StartBody;

class SimHttp : public testing::Test {
protected:
    // Every request gets this answer.
    void Answer(const HttpAnswer& answer)
    {
        m_machine.SetHttpHandler([answer](const HttpExchange&) { return answer; });
    }

    HttpRequestPtr Open(const CString& object = L"/path") const
    {
        return OpenHttpRequest(OpenHttpConnection(m_session, L"host", 8470), object, 1);
    }

    // Reads the body in small pieces. Throws like ReadHttpBody.
    static std::string Body(const HttpRequestPtr& request)
    {
        std::string body;
        char piece[3];
        while (const std::size_t size = ReadHttpBody(request, piece, sizeof piece)) {
            body.append(piece, size);
        }
        return body;
    }

    static DWORD StatusOf(const HttpRequestPtr& request)
    {
        DWORD status = 0;
        EXPECT_TRUE(QueryHttpStatusCode(request, &status));
        return status;
    }

    CMachine m_machine;
    HttpSessionPtr m_session = OpenHttpSession(L"Agent", 1);
};

TEST_F(SimHttp, WebAnswersWithNotFoundUnlessToldOtherwise)
{
    const HttpRequestPtr request = Open();
    ASSERT_TRUE(SendHttpRequest(request));
    EXPECT_EQ(StatusOf(request), 404U);
    EXPECT_EQ(Body(request), "");
}

TEST_F(SimHttp, DefaultPortIsNotNamed)
{
    ASSERT_TRUE(SendHttpRequest(OpenHttpRequest(OpenHttpConnection(m_session, L"host", 80), L"/", 1)));
    EXPECT_EQ(m_machine.HttpExchanges().back().host, "host");
}

TEST_F(SimHttp, FaultBeforeTheHeaderFailsTheSendAndBreaksTheConnection)
{
    struct Case {
        HttpFault fault;
        DWORD code;
        std::int64_t takesMs;
    };
    for (const Case& fault : {Case{HttpFault::kClosedEarly, 12030, 0}, Case{HttpFault::kGarbage, 12152, 0},
                              Case{HttpFault::kStalled, 12002, 30'000}}) {
        Answer({});
        ASSERT_TRUE(SendHttpRequest(Open()));
        const unsigned before = m_machine.HttpExchanges().back().connection;
        const std::int64_t startMs = m_machine.ElapsedMs();
        Answer({.fault = fault.fault});
        const HttpRequestPtr request = Open();
        EXPECT_FALSE(SendHttpRequest(request));
        EXPECT_EQ(GetLastErrorCode(), fault.code);
        EXPECT_EQ(m_machine.ElapsedMs() - startMs, fault.takesMs);
        DWORD status = 0;
        EXPECT_FALSE(QueryHttpStatusCode(request, &status));
        Answer({});
        ASSERT_TRUE(SendHttpRequest(Open()));
        EXPECT_EQ(m_machine.HttpExchanges().back().connection, before + 1);
    }
}

TEST_F(SimHttp, RefusedRequestNeverReachesTheWeb)
{
    Answer({.fault = HttpFault::kRefused});
    EXPECT_FALSE(SendHttpRequest(Open()));
    EXPECT_EQ(GetLastErrorCode(), 12029U);
    EXPECT_TRUE(m_machine.HttpExchanges().empty());
}

TEST_F(SimHttp, FaultInTheBodyThrowsAfterItsFirstHalf)
{
    struct Case {
        HttpFault fault;
        DWORD code;
        std::int64_t takesMs;
    };
    for (const Case& fault : {Case{HttpFault::kStalledBody, 12002, 30'000}, Case{HttpFault::kShortBody, 12030, 0},
                              Case{HttpFault::kReset, 12031, 0}}) {
        Answer({.body = "0123456789", .fault = fault.fault});
        const std::int64_t startMs = m_machine.ElapsedMs();
        const HttpRequestPtr request = Open();
        ASSERT_TRUE(SendHttpRequest(request));
        EXPECT_EQ(StatusOf(request), 200U);
        const unsigned before = m_machine.HttpExchanges().back().connection;
        char buffer[10] = {};
        EXPECT_EQ(ReadHttpBody(request, buffer, sizeof buffer), 5U);
        EXPECT_STREQ(buffer, "01234");
        try {
            ReadHttpBody(request, buffer, sizeof buffer);
            ADD_FAILURE() << "the read succeeded";
        } catch (const CInternetException& exception) {
            EXPECT_EQ(exception.Code(), fault.code);
        }
        EXPECT_EQ(m_machine.ElapsedMs() - startMs, fault.takesMs);
        Answer({});
        ASSERT_TRUE(SendHttpRequest(Open()));
        EXPECT_EQ(m_machine.HttpExchanges().back().connection, before + 1);
    }
}

TEST_F(SimHttp, LatencyPassesVirtualTimeAndLetsOthersRun)
{
    Answer({.latencyMs = 2'500});
    std::int64_t otherRanAtMs = -1;
    StartBody([&] { otherRanAtMs = m_machine.ElapsedMs(); });
    EXPECT_TRUE(SendHttpRequest(Open()));
    EXPECT_EQ(otherRanAtMs, 0);
    EXPECT_EQ(m_machine.ElapsedMs(), 2'500);
}

TEST_F(SimHttp, LatencyBeyondTheSystemsLimitIsATimeOut)
{
    Answer({.latencyMs = 30'001});
    EXPECT_FALSE(SendHttpRequest(Open()));
    EXPECT_EQ(GetLastErrorCode(), 12002U);
    EXPECT_EQ(m_machine.ElapsedMs(), 30'000);
}

TEST_F(SimHttp, BodyThatDripsForTooLongIsATimeOut)
{
    Answer({.body = std::string(31, 'x'), .dripMs = 9'990});
    const HttpRequestPtr request = Open();
    ASSERT_TRUE(SendHttpRequest(request));
    char buffer[31];
    for (int i = 0; i < 30; ++i) {
        ASSERT_EQ(ReadHttpBody(request, buffer, sizeof buffer), 1U);
    }
    EXPECT_THROW(ReadHttpBody(request, buffer, sizeof buffer), CInternetException);
    EXPECT_EQ(m_machine.ElapsedMs(), 300'000);
}

TEST_F(SimHttp, RedirectsThatTakeTooLongTogetherAreATimeOut)
{
    m_machine.SetHttpHandler([steps = 0](const HttpExchange&) mutable -> HttpAnswer {
        return {.status = ++steps <= 10 ? 302U : 200U, .headers = {{"Location", "/next"}}, .latencyMs = 29'000};
    });
    EXPECT_FALSE(SendHttpRequest(Open()));
    EXPECT_EQ(GetLastErrorCode(), 12002U);
    EXPECT_EQ(m_machine.ElapsedMs(), 300'000);
}

TEST_F(SimHttp, RedirectsAreFollowed)
{
    m_machine.SetHttpHandler([](const HttpExchange& exchange) -> HttpAnswer {
        if (exchange.target == "/path") {
            return {.status = 301, .headers = {{"location", "/a/b?c"}}};
        }
        if (exchange.target == "/a/b?c") {
            return {.status = 302, .headers = {{"Location", "d?e"}}};
        }
        if (exchange.target == "/a/d?e") {
            return {.status = 307, .headers = {{"Location", "http://other:81/f"}}};
        }
        if (exchange.target == "/f") {
            return {.status = 308, .headers = {{"Location", "HTTP://third"}}};
        }
        return {.body = exchange.host + exchange.target};
    });
    const HttpRequestPtr request = Open();
    ASSERT_TRUE(SendHttpRequest(request));
    EXPECT_EQ(Body(request), "third/");
    std::vector<unsigned> connections;
    for (const HttpExchange& exchange : m_machine.HttpExchanges()) {
        connections.push_back(exchange.connection);
    }
    EXPECT_THAT(connections, ElementsAre(1, 1, 1, 2, 3));
}

TEST_F(SimHttp, RedirectWithoutLocationIsAnAnswerLikeAnyOther)
{
    Answer({.status = 302, .body = "here"});
    const HttpRequestPtr request = Open();
    ASSERT_TRUE(SendHttpRequest(request));
    EXPECT_EQ(StatusOf(request), 302U);
    EXPECT_EQ(Body(request), "here");
    Answer({.status = 304, .headers = {{"Location", "/elsewhere"}}});
    ASSERT_TRUE(SendHttpRequest(Open()));
    EXPECT_EQ(m_machine.HttpExchanges().size(), 2U);
}

TEST_F(SimHttp, RedirectToAnotherSchemeFails)
{
    Answer({.status = 301, .headers = {{"Location", "https://host/"}}});
    EXPECT_FALSE(SendHttpRequest(Open()));
    EXPECT_EQ(GetLastErrorCode(), 12156U);
    EXPECT_EQ(m_machine.HttpExchanges().size(), 1U);
}

TEST_F(SimHttp, NothingOpensOnAClosedSession)
{
    const HttpConnectionPtr connection = OpenHttpConnection(m_session, L"host", 80);
    CloseHttpSession(m_session);
    EXPECT_EQ(OpenHttpConnection(m_session, L"host", 80), nullptr);
    EXPECT_EQ(OpenHttpRequest(connection, L"/", 1), nullptr);
    EXPECT_EQ(GetLastErrorCode(), ERROR_INVALID_HANDLE);
    CloseHttpSession(nullptr);
}

TEST_F(SimHttp, HandlerMayChangeTheMachine)
{
    m_machine.SetHttpHandler([this](const HttpExchange&) -> HttpAnswer {
        Answer({.status = 503});
        return {};
    });
    const HttpRequestPtr first = Open();
    const HttpRequestPtr second = Open();
    ASSERT_TRUE(SendHttpRequest(first));
    ASSERT_TRUE(SendHttpRequest(second));
    EXPECT_EQ(StatusOf(first), 200U);
    EXPECT_EQ(StatusOf(second), 503U);
}

TEST_F(SimHttp, ConnectedStateIsWhatWasSet)
{
    DWORD flags = 0;
    EXPECT_TRUE(QueryConnectedState(&flags));
    EXPECT_EQ(flags, kConnectionLan);
    m_machine.SetConnectedState(FALSE, kConnectionOffline);
    EXPECT_FALSE(QueryConnectedState(&flags));
    EXPECT_EQ(flags, kConnectionOffline);
}

TEST_F(SimHttp, InjectedFaultsFailOrThrow)
{
    const HttpConnectionPtr connection = OpenHttpConnection(m_session, L"host", 80);
    const HttpRequestPtr request = OpenHttpRequest(connection, L"/", 1);
    DWORD status = 0;
    char buffer[1];
    for (const Call call : {Call::kOpenHttpSession, Call::kOpenHttpConnection, Call::kOpenHttpRequest,
                            Call::kSendHttpRequest, Call::kQueryHttpStatusCode}) {
        m_machine.FailEvery(call, 1234);
    }
    EXPECT_EQ(OpenHttpSession(L"Agent", 1), nullptr);
    EXPECT_EQ(OpenHttpConnection(m_session, L"host", 80), nullptr);
    EXPECT_EQ(OpenHttpRequest(connection, L"/", 1), nullptr);
    EXPECT_FALSE(SendHttpRequest(request));
    EXPECT_FALSE(QueryHttpStatusCode(request, &status));
    EXPECT_EQ(GetLastErrorCode(), 1234U);
    m_machine.ClearFaults();
    for (const Call call : {Call::kOpenHttpConnectionThrows, Call::kOpenHttpRequestThrows, Call::kSendHttpRequestThrows,
                            Call::kQueryHttpStatusCodeThrows, Call::kReadHttpBody}) {
        m_machine.FailEvery(call, 1234);
    }
    EXPECT_THROW(OpenHttpConnection(m_session, L"host", 80), CInternetException);
    EXPECT_THROW(OpenHttpRequest(connection, L"/", 1), CInternetException);
    EXPECT_THROW(SendHttpRequest(request), CInternetException);
    EXPECT_THROW(QueryHttpStatusCode(request, &status), CInternetException);
    EXPECT_THROW(ReadHttpBody(request, buffer, sizeof buffer), CInternetException);
    EXPECT_TRUE(m_machine.HttpExchanges().empty());
}

} // namespace
} // namespace platform::sim
