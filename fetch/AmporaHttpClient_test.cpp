#include "fetch/AmporaHttpClient.h"

#include "platform/LastError.h"
#include "testing/FailingMemory.h"
#include "testing/MachineTest.h"
#include "testing/Trace.h"

#include <gmock/gmock.h>
#include <memory>

namespace {

using platform::sim::Call;
using testing::ElementsAre;
using testing::IsEmpty;
using testing_support::HttpAnswer;
using testing_support::HttpExchange;
using testing_support::HttpFault;
using testing_support::TraceLine;
using testing_support::TraceLines;
using testing_support::TraceMessages;

constexpr char kGetData[] = "CAmporaHttpClient::GetData";
constexpr wchar_t kUrl[] = L"http://127.0.0.1:8470/usage/tokyo/actual?date=2012-07-02&output=xml";
constexpr DWORD kInternetError = 12030;

TraceLine Message(const char* level, const char* message) { return {level, kGetData, message}; }

// What one GetData gave.
struct Result {
    BOOL success;
    CString body;
    DWORD status;
};

class AmporaHttpClient : public testing_support::CMachineTest {
protected:
    AmporaHttpClient() { Answer({.body = "text"}); }

    void Answer(HttpAnswer answer)
    {
        m_machine.SetHttpHandler([answer](const HttpExchange&) { return answer; });
    }

    Result Get(const CString& url = kUrl)
    {
        m_machine.ClearDebugLines();
        platform::SetLastErrorCode(ERROR_SUCCESS);
        Result result{FALSE, L"before ", 0};
        result.success = m_client->GetData(url, result.body, result.status);
        EXPECT_EQ(m_machine.OpenHttpHandleCount(), 0U);
        return result;
    }

    // A download that fails with these messages only, touches nothing and closes its scope.
    void ExpectFailure(std::initializer_list<TraceLine> messages)
    {
        const Result result = Get();
        EXPECT_FALSE(result.success);
        EXPECT_EQ(result.body, L"before ");
        EXPECT_THAT(TraceMessages(), testing::ElementsAreArray(messages));
        EXPECT_EQ(TraceLines().front(), Message("TRA", "Enter"));
        EXPECT_EQ(TraceLines().back(), Message("TRA", "Leave"));
    }

    std::unique_ptr<CAmporaHttpClient> m_client = std::make_unique<CAmporaHttpClient>();
};

TEST_F(AmporaHttpClient, GetsTheBody)
{
    const Result result = Get();
    EXPECT_TRUE(result.success);
    EXPECT_EQ(result.body, L"before text");
    EXPECT_EQ(result.status, 200U);
    EXPECT_THAT(TraceLines(), ElementsAre(Message("TRA", "Enter"), Message("TRA", "Leave")));
}

TEST_F(AmporaHttpClient, SendsWhatTheUrlSays)
{
    Get();
    const std::vector<HttpExchange> exchanges = m_machine.HttpExchanges();
    ASSERT_EQ(exchanges.size(), 1U);
    EXPECT_EQ(exchanges[0].method, "GET");
    EXPECT_EQ(exchanges[0].host, "127.0.0.1:8470");
    EXPECT_EQ(exchanges[0].target, "/usage/tokyo/actual?date=2012-07-02&output=xml");
    EXPECT_EQ(exchanges[0].agent, "Ampora Service");
}

TEST_F(AmporaHttpClient, ServiceTypeIsNotExamined)
{
    EXPECT_TRUE(Get(L"ftp://host/x").success);
    EXPECT_EQ(m_machine.HttpExchanges()[0].host, "host:21");
}

TEST_F(AmporaHttpClient, UsesItsConnectionAgain)
{
    Get();
    Get();
    const std::vector<HttpExchange> exchanges = m_machine.HttpExchanges();
    ASSERT_EQ(exchanges.size(), 2U);
    EXPECT_EQ(exchanges[0].connection, exchanges[1].connection);
}

TEST_F(AmporaHttpClient, AppendsToABodyThatIsNotEmpty)
{
    CString body = L"old ";
    DWORD status = 0;
    EXPECT_TRUE(m_client->GetData(kUrl, body, status));
    EXPECT_TRUE(m_client->GetData(kUrl, body, status));
    EXPECT_EQ(body, L"old texttext");
}

// The three tests of the connected state, in their order.

TEST_F(AmporaHttpClient, MachineThatIsNotConnectedEndsTheDownload)
{
    using namespace platform;
    const struct {
        BOOL isKnown;
        DWORD flags;
        TraceLine message;
    } states[] = {
        {FALSE, kConnectionLan, Message("WAR", "Check Connection Fail")},
        {FALSE, kConnectionOffline, Message("WAR", "Check Connection Fail")},
        {TRUE, 0, Message("TRA", "Not Connect Internet")},
        {TRUE, kConnectionProxy, Message("TRA", "Not Connect Internet")},
        {TRUE, kConnectionProxy | kConnectionOffline, Message("TRA", "Not Connect Internet")},
        {TRUE, kConnectionLan | kConnectionOffline, Message("TRA", "Off Line Mode")},
    };
    for (const auto& state : states) {
        SCOPED_TRACE(testing::Message() << state.isKnown << " " << state.flags);
        m_machine.SetConnectedState(state.isKnown, state.flags);
        ExpectFailure({state.message});
    }
    EXPECT_EQ(m_machine.CallCount(Call::kOpenHttpConnection), 0U);
}

TEST_F(AmporaHttpClient, LanOrModemIsConnectedWhateverTheOtherBits)
{
    for (const DWORD flags : {DWORD{platform::kConnectionModem}, platform::kConnectionLan | 0x10 | 0x40}) {
        m_machine.SetConnectedState(TRUE, flags);
        EXPECT_TRUE(Get().success) << flags;
    }
}

TEST_F(AmporaHttpClient, OffLineMachineIsNotAskedForItsUrl)
{
    m_machine.SetConnectedState(TRUE, 0);
    Get(L"no url");
    EXPECT_THAT(TraceMessages(), ElementsAre(Message("TRA", "Not Connect Internet")));
}

// URL and connection.

TEST_F(AmporaHttpClient, UrlThatCannotBeSplitEndsTheDownload)
{
    EXPECT_FALSE(Get(L"http://host:0/").success);
    EXPECT_THAT(TraceLines(),
                ElementsAre(Message("TRA", "Enter"), Message("ERR", "AfxParseURL Fail."), Message("TRA", "Leave")));
    EXPECT_EQ(m_machine.CallCount(Call::kOpenHttpConnection), 0U);
}

TEST_F(AmporaHttpClient, ClientWithoutSessionHasNoConnection)
{
    m_machine.FailCall(Call::kOpenHttpSession, 1, kInternetError);
    m_client = std::make_unique<CAmporaHttpClient>();
    ExpectFailure({Message("ERR", "CHttpConnection Create Fail.")});
    EXPECT_EQ(platform::GetLastErrorCode(), 14U);
}

// Request: opened outside the guarded region.

TEST_F(AmporaHttpClient, ExceptionOfTheRequestReachesTheCaller)
{
    m_machine.FailCall(Call::kOpenHttpRequestThrows, 1, kInternetError);
    EXPECT_THROW(Get(), platform::CInternetException);
    EXPECT_EQ(m_machine.OpenHttpHandleCount(), 0U);
    EXPECT_THAT(TraceLines(), ElementsAre(Message("TRA", "Enter"), Message("TRA", "Leave")));
}

TEST_F(AmporaHttpClient, ServerWithoutAnAnswerIsAFailedSend)
{
    for (const HttpFault fault :
         {HttpFault::kRefused, HttpFault::kClosedEarly, HttpFault::kGarbage, HttpFault::kStalled}) {
        Answer({.body = "text", .fault = fault});
        ExpectFailure({Message("ERR", "SendRequest Fail.")});
    }
}

// Each step that fails, by its result or by an exception, ends the download before the next one.

struct FailedStep {
    const char* name;
    Call call;
    TraceLine message;
    Call next;           // is not called
    DWORD lastError = 0; // left behind; 0: not promised
};
void PrintTo(const FailedStep& step, std::ostream* stream) { *stream << step.name; }

class AmporaHttpClientStep : public AmporaHttpClient, public testing::WithParamInterface<FailedStep> {};

TEST_P(AmporaHttpClientStep, FailureEndsTheDownload)
{
    const unsigned before = m_machine.CallCount(GetParam().next);
    m_machine.FailCall(GetParam().call, 1, kInternetError);
    ExpectFailure({GetParam().message});
    EXPECT_EQ(m_machine.CallCount(GetParam().next), before);
    if (GetParam().lastError != 0) {
        EXPECT_EQ(platform::GetLastErrorCode(), GetParam().lastError);
    }
}

const TraceLine kNoConnection = Message("ERR", "CHttpConnection Create Fail.");
const TraceLine kNotSent = Message("ERR", "SendRequest Fail.");
const TraceLine kException = Message("WAR", "Exception!");

INSTANTIATE_TEST_SUITE_P(
    Steps, AmporaHttpClientStep,
    testing::Values(FailedStep{"Connection", Call::kOpenHttpConnection, kNoConnection, Call::kOpenHttpRequest, 14},
                    FailedStep{"ConnectionThrows", Call::kOpenHttpConnectionThrows, kNoConnection,
                               Call::kOpenHttpRequest, 14},
                    FailedStep{"Request", Call::kOpenHttpRequest, kNotSent, Call::kSendHttpRequest},
                    FailedStep{"Send", Call::kSendHttpRequest, kNotSent, Call::kQueryHttpStatusCode},
                    FailedStep{"SendThrows", Call::kSendHttpRequestThrows, kException, Call::kQueryHttpStatusCode},
                    FailedStep{"Status", Call::kQueryHttpStatusCode, Message("ERR", "QueryInfoStatusCode Fail."),
                               Call::kReadHttpBody},
                    FailedStep{"StatusThrows", Call::kQueryHttpStatusCodeThrows, kException, Call::kReadHttpBody},
                    FailedStep{"Body", Call::kReadHttpBody, kException, Call::kOpenHttpSession}),
    [](const auto& info) { return info.param.name; });

TEST_F(AmporaHttpClient, BodyThatBreaksOffAppendsNothing)
{
    Answer({.body = std::string(100'000, 'x')});
    m_machine.FailCall(Call::kReadHttpBody, 2, kInternetError);
    ExpectFailure({Message("WAR", "Exception!")});

    for (const HttpFault fault : {HttpFault::kStalledBody, HttpFault::kShortBody, HttpFault::kReset}) {
        Answer({.body = std::string(100'000, 'x'), .fault = fault});
        ExpectFailure({Message("WAR", "Exception!")});
    }
}

TEST_F(AmporaHttpClient, BodyThatDripsForMinutesAppendsNothing)
{
    // Symptom: a server that sent a byte now and then held up the passes of all sessions for days.
    Answer({.body = std::string(100'000, 'x'), .dripMs = 29'000});
    const std::int64_t startMs = m_machine.ElapsedMs();
    ExpectFailure({Message("WAR", "Exception!")});
    EXPECT_EQ(m_machine.ElapsedMs() - startMs, 5 * 60'000);
}

TEST_F(AmporaHttpClient, StatusIsKnownEvenWhenTheBodyBreaksOff)
{
    Answer({.status = 206, .body = "text", .fault = HttpFault::kShortBody});
    EXPECT_EQ(Get().status, 206U);
}

TEST_F(AmporaHttpClient, RunningOutOfMemoryIsTracedAsAnException)
{
    m_machine.SetHttpHandler([](const HttpExchange&) -> HttpAnswer { throw std::bad_alloc(); });
    ExpectFailure({Message("WAR", "Exception!")});
}

TEST_F(AmporaHttpClient, ExceptionOfAnotherFamilyReachesTheCaller)
{
    m_machine.SetHttpHandler([](const HttpExchange&) -> HttpAnswer { throw 1; });
    EXPECT_THROW(Get(), int);
    EXPECT_EQ(m_machine.OpenHttpHandleCount(), 0U);
    EXPECT_THAT(TraceLines(), ElementsAre(Message("TRA", "Enter"), Message("TRA", "Leave")));
}

TEST_F(AmporaHttpClient, GoesOnAfterAFailedDownload)
{
    m_machine.FailCall(Call::kReadHttpBody, 1, kInternetError);
    EXPECT_FALSE(Get().success);
    EXPECT_EQ(Get().body, L"before text");
}

TEST_F(AmporaHttpClient, LongestBodyIsTaken)
{
    std::string body(kMaxBodyBytes, 'x');
    body[4] = '\0'; // little text from many bytes
    Answer({.body = std::move(body)});
    EXPECT_EQ(Get().body, L"before xxxx");
    EXPECT_THAT(TraceMessages(), IsEmpty());
}

TEST_F(AmporaHttpClient, LongerBodyEndsTheDownload)
{
    Answer({.body = std::string(kMaxBodyBytes + 1, 'x')});
    ExpectFailure({Message("WAR", "Exception!")});
}

// Status codes.

TEST_F(AmporaHttpClient, StatusFrom400OnGivesTrueAndNoBody)
{
    for (const DWORD status : {400U, 404U, 500U, 503U, 999U}) {
        Answer({.status = status, .body = "error page"});
        const unsigned readsBefore = m_machine.CallCount(Call::kReadHttpBody);
        const Result result = Get();
        EXPECT_TRUE(result.success);
        EXPECT_EQ(result.body, L"before ");
        EXPECT_EQ(result.status, status);
        const std::string message = "StatusCode is Error " + std::to_string(status);
        EXPECT_THAT(TraceMessages(), ElementsAre(Message("TRA", message.c_str())));
        EXPECT_EQ(m_machine.CallCount(Call::kReadHttpBody), readsBefore);
    }
}

TEST_F(AmporaHttpClient, StatusBelow400GivesTheBody)
{
    for (const DWORD status : {100U, 101U, 199U, 200U, 204U, 299U, 300U, 304U, 399U}) {
        Answer({.status = status, .body = "text"});
        const Result result = Get();
        EXPECT_TRUE(result.success);
        EXPECT_EQ(result.body, L"before text");
        EXPECT_EQ(result.status, status);
        EXPECT_THAT(TraceMessages(), IsEmpty());
    }
}

// Decoding.

TEST_F(AmporaHttpClient, BodyIsTakenAsUtf8UpToItsFirstZeroByte)
{
    const std::pair<HttpAnswer, CString> bodies[] = {
        {{.body = ""}, L""},
        {{.body = std::string("one\0two\0", 8)}, L"one"},
        {{.body = "a\xFF"
                  "b\xC3"},
         L"a\xFFFD"
         L"b\xFFFD"},
        {{.body = "\xC3\xA4", .headers = {{"Content-Type", "text/xml; charset=Shift_JIS"}}}, L"\xE4"},
    };
    for (const auto& [answer, text] : bodies) {
        Answer(answer);
        const Result result = Get();
        EXPECT_TRUE(result.success);
        EXPECT_EQ(result.body, L"before " + text);
    }
}

TEST_F(AmporaHttpClient, CharactersAreNotSplitBetweenReads)
{
    // Three bytes a character: no size of reads divides the body evenly.
    std::string body;
    for (int i = 0; i < 50'000; ++i) {
        body += "\xE6\x9D\xB1";
    }
    Answer({.body = body});
    EXPECT_EQ(Get().body, L"before " + CString(50'000, L'\x6771'));
}

TEST(ConvertFromUtf8, StopsAtTheFirstZero)
{
    EXPECT_EQ(CAmporaHttpClient::ConvertFromUtf8("\xE6\x9D\xB1\0x", 6), L"\x6771");
    EXPECT_EQ(CAmporaHttpClient::ConvertFromUtf8("", 1), L"");
}

TEST(ConvertFromUtf8, IsEmptyWithoutMemory)
{
    const char bytes[] = "a text that does not fit into a small string's own buffer";
    const testing_support::CFailingMemory failing(1);
    EXPECT_EQ(CAmporaHttpClient::ConvertFromUtf8(bytes, sizeof(bytes)), L"");
    EXPECT_TRUE(failing.HasFailed());
}

// Life.

TEST_F(AmporaHttpClient, ConstructorOpensASessionAndTracesItsScope)
{
    const unsigned before = m_machine.CallCount(Call::kOpenHttpSession);
    m_machine.ClearDebugLines();
    const CAmporaHttpClient client;
    EXPECT_EQ(m_machine.CallCount(Call::kOpenHttpSession), before + 1);
    const std::string name = "CAmporaHttpClient::CAmporaHttpClient";
    EXPECT_THAT(TraceLines(), ElementsAre(TraceLine{"TRA", name, "Enter"}, TraceLine{"TRA", name, "Leave"}));
}

TEST_F(AmporaHttpClient, SessionIsOpenedBeforeTheScope)
{
    m_machine.ClearDebugLines();
    {
        const testing_support::CFailingMemory failing(1);
        EXPECT_THROW(CAmporaHttpClient(), std::bad_alloc);
    }
    EXPECT_THAT(TraceLines(), IsEmpty());
}

TEST_F(AmporaHttpClient, DestructorClosesTheSessionAndTracesItsScope)
{
    m_machine.ClearDebugLines();
    m_client.reset();
    EXPECT_EQ(m_machine.CallCount(Call::kCloseHttpSession), 1U);
    const std::string name = "CAmporaHttpClient::~CAmporaHttpClient";
    EXPECT_THAT(TraceLines(), ElementsAre(TraceLine{"TRA", name, "Enter"}, TraceLine{"TRA", name, "Leave"}));
}

} // namespace
