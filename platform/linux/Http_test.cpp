// What HTTP on Linux does beyond the contract of every backend.
#include "platform/Http.h"

#include "testing/LoopbackServer.h"
#include "testing/process/Peer.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <gmock/gmock.h>
#include <optional>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// How far this program's monotonic clock is ahead of the system's.
std::atomic<std::time_t> g_clockAheadS = 0;

} // namespace

// In place of the system's own, for everything in this program.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    const long result = ::syscall(SYS_clock_gettime, clock, time);
    if (result == 0 && clock == CLOCK_MONOTONIC) {
        time->tv_sec += g_clockAheadS;
    }
    return static_cast<int>(result);
}

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
        try {
            return SendHttpRequest(request) ? BodyOf(request) : "(no answer)";
        } catch (const CInternetException&) {
            return "(broken)";
        }
    }

    const CVariable m_noProxy{"http_proxy", nullptr};
    const CVariable m_noProxyForAll{"all_proxy", nullptr};
    const CVariable m_noProxyForAnything{"ALL_PROXY", nullptr};
    std::optional<CLoopbackServer> m_server;
    HttpSessionPtr m_session = OpenHttpSession(L"Test", 1);
};

TEST_F(LinuxHttp, AWaitForALateAnswerSleepsThrough)
{
    m_server.emplace([](const HttpExchange&) { return HttpAnswer{.body = "late", .latencyMs = 300}; });
    const auto timesAsleep = [] {
        rusage usage = {};
        ::getrusage(RUSAGE_THREAD, &usage);
        return usage.ru_nvcsw;
    };
    const long before = timesAsleep();
    EXPECT_EQ(Get(), "late");
    EXPECT_GE(timesAsleep() - before, 1) << "it works all the time";
    EXPECT_LE(timesAsleep() - before, 20) << "it wakes up again and again";
}

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

TEST_F(LinuxHttp, FollowsTheStatusesOfARedirection)
{
    DWORD status = 300;
    m_server.emplace([&status](const HttpExchange& exchange) {
        return exchange.target == "/next" ? HttpAnswer{.body = "next"}
                                          : HttpAnswer{.status = status, .headers = {{"Location", "/next"}}};
    });
    std::vector<DWORD> followed;
    for (; status < 310; ++status) {
        if (Get() == "next") {
            followed.push_back(status);
        }
    }
    EXPECT_THAT(followed, testing::ElementsAre(301, 302, 303, 307, 308));
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

TEST_F(LinuxHttp, HeaderThatBeginsFoldedAfterARedirectionIsNoAnswer)
{
    // Symptom: the line was joined to the last one of the redirection's header, whose memory had been freed.
    m_server.emplace([](const HttpExchange& exchange) {
        return exchange.target == "/next" ? HttpAnswer{.headers = {{" folded", "x"}}}
                                          : HttpAnswer{.status = 302, .headers = {{"Location", "/next"}}};
    });
    EXPECT_EQ(Get(L"/next"), "(no answer)");
    EXPECT_EQ(Get(), "(no answer)");
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

TEST_F(LinuxHttp, UnreadBodyThatComesLateKeepsItsConnection)
{
    m_server.emplace([](const HttpExchange& exchange) {
        HttpAnswer late{.body = "sorry", .headers = {{"Location", "/good"}}, .dripMs = 10};
        late.status = exchange.target == "/moved" ? 302 : 404;
        return exchange.target == "/good" ? HttpAnswer{.body = "good"} : late;
    });
    EXPECT_TRUE(SendHttpRequest(Open(L"/bad")));
    EXPECT_EQ(Get(L"/moved"), "good");
    EXPECT_EQ(m_server->ConnectionCount(), 1U);
}

// Limits of one answer and of one request.

TEST_F(LinuxHttp, TransferCodingOtherThanChunkedIsNoAnswer)
{
    // Symptom: 300 bytes in the transfer coding gzip became gigabytes in memory.
    std::string coding;
    m_server.emplace([&coding](const HttpExchange&) {
        return HttpAnswer{.body = "body", .headers = {{"TRANSFER-encoding", coding}, {"Connection", "close"}}};
    });
    for (const char* each : {"gzip", "deflate", "gzip, chunked", "chunked, gzip", "x"}) {
        coding = each;
        EXPECT_FALSE(SendHttpRequest(Open())) << each;
    }
    m_server.emplace([](const HttpExchange&) {
        return HttpAnswer{.body = "body", .headers = {{"TRANSFER-encoding", " Chunked\t"}}, .chunked = true};
    });
    EXPECT_EQ(Get(), "body");
}

TEST_F(LinuxHttp, HeadersOfOneAnswerHaveALimitTogether)
{
    // Symptom: 70 MB of lines after the last chunk took 3 GB of memory.
    const auto lines = [](std::size_t kilobytes) {
        std::string text;
        for (std::size_t i = 0; i < kilobytes; ++i) {
            text += "X: " + std::string(1024 - 5, 'x') + "\r\n";
        }
        return text;
    };
    struct Case {
        std::size_t interimKb, headerKb, trailerKb;
        const char* result;
    };
    for (const Case& each : {Case{85, 85, 85, "body"},
                             {255, 0, 0, "body"},
                             {256, 0, 0, "(no answer)"},
                             {0, 257, 0, "(no answer)"},
                             {100, 157, 0, "(no answer)"},
                             {85, 85, 87, "(broken)"}}) {
        SCOPED_TRACE(testing::Message() << each.interimKb << " " << each.headerKb << " " << each.trailerKb);
        std::string header = lines(each.headerKb);
        m_server.emplace([&](const HttpExchange&) {
            // The value goes on with lines of its own.
            return HttpAnswer{.body = "body",
                              .headers = {{"X", "x\r\n" + header + "X: x"}},
                              .chunked = true,
                              .trailers = lines(each.trailerKb)};
        });
        m_server->SetPrelude("HTTP/1.1 100 Continue\r\n" + lines(each.interimKb) + "\r\n");
        EXPECT_EQ(Get(), each.result);
    }
}

TEST_F(LinuxHttp, FramesOfChunksHaveALimit)
{
    // Symptom: gigabytes of chunk extension were received before a chunk's first byte.
    std::size_t size = 0;
    m_server.emplace([&size](const HttpExchange&) {
        return HttpAnswer{.body = "4;" + std::string(size, 'x') + "\r\nbody\r\n0\r\n\r\n",
                          .headers = {{"Transfer-Encoding", "chunked"}, {"Connection", "close"}}};
    });
    EXPECT_EQ(Get(), "body");
    size = std::size_t{65} * 1024 * 1024;
    EXPECT_EQ(Get(), "(broken)");
}

TEST_F(LinuxHttp, BodyInTooManyPacketsBreaks)
{
    // Symptom: 8 MiB in chunks of one byte, each in a packet of its own, took 7 s of processor time.
    constexpr std::size_t kSize = 5'000'000;
    m_server.emplace([](const HttpExchange&) {
        const std::string header = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(kSize) + "\r\n\r\n";
        return HttpAnswer{.script = {{{{header}, {"x", kSize}}}}};
    });
    EXPECT_EQ(Get(), "(broken)");
}

TEST_F(LinuxHttp, BodyThatDripsForMinutesBreaks)
{
    // Symptom: a server that sent a byte now and then held up the passes of all sessions for days.
    m_server.emplace([](const HttpExchange&) { return HttpAnswer{.body = "0123456789abcdef", .dripMs = 5}; });
    const HttpRequestPtr request = Open();
    ASSERT_TRUE(SendHttpRequest(request));
    std::size_t size = 0;
    char piece[1];
    EXPECT_THROW(
        while (ReadHttpBody(request, piece, 1) > 0) {
            ++size;
            g_clockAheadS += 29;
        },
        CInternetException);
    EXPECT_THAT(size, testing::AllOf(testing::Ge(10U), testing::Le(11U)));
}

TEST_F(LinuxHttp, TimeOfRedirectionsCountsForTheirRequest)
{
    // Symptom: as above; ten redirections alone took nearly five minutes.
    m_server.emplace([step = 0](const HttpExchange&) mutable {
        g_clockAheadS += 29;
        return ++step <= 10 ? HttpAnswer{.status = 302, .headers = {{"Location", "/next"}}}
                            : HttpAnswer{.body = "body", .dripMs = 5};
    });
    EXPECT_EQ(Get(), "(broken)");
    EXPECT_THAT(m_server->Exchanges(), SizeIs(11));
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

TEST_F(LinuxHttp, RequestMayBeSentAgain)
{
    m_server.emplace([](const HttpExchange& exchange) { return HttpAnswer{.body = exchange.target}; });
    const HttpRequestPtr request = Open();
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(SendHttpRequest(request));
        EXPECT_EQ(BodyOf(request), "/path");
    }
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

// The state in a network of its own, which has a loopback interface that is not up, after commands for it.
bool IsStateAfter(const std::string& commands, DWORD flags)
{
    const std::string script = commands + "\nexec '" AMPORA_TEST_PEER "'";
    testing_support::CPeer peer({"unshare", "--user", "--map-root-user", "--net", "sh", "-ec", script},
                                {{"AMPORA_CONNECTED_STATE", ""}});
    return peer.Do("online " + std::to_string(flags));
}

TEST(LinuxConnectedState, NetworkCountsWithCarrierAndAddressThatLeadsAnywhere)
{
    // Symptom: a machine without a cable, or that no server had given an address, counted as connected.
    const std::string cable = "ip link add name near type veth peer name far\n";
    const std::string carrier = cable +
                                "ip link set dev near up\nip link set dev far up\n"
                                "timeout 30 sh -c 'until ip link show dev near | grep -q state.UP; do :; done'\n";
    EXPECT_TRUE(IsStateAfter("", 0));
    EXPECT_TRUE(IsStateAfter("ip link set dev lo up\nip address add 192.0.2.1/24 dev lo", 0));
    EXPECT_TRUE(IsStateAfter(cable + "ip address add 192.0.2.1/24 dev near", 0));
    EXPECT_TRUE(IsStateAfter(cable + "ip address add 192.0.2.1/24 dev near\nip link set dev near up", 0));
    EXPECT_TRUE(IsStateAfter(carrier + "ip address add 169.254.255.1/16 dev near", 0));
    EXPECT_TRUE(IsStateAfter(carrier + "ip address add febf::1/10 nodad dev near", 0));
    EXPECT_TRUE(IsStateAfter(carrier + "ip address add 169.253.0.1/24 dev near", kConnectionLan));
    EXPECT_TRUE(IsStateAfter(carrier + "ip address add 2001:db8::1/64 nodad dev near", kConnectionLan));
}

TEST(LinuxConnectedState, NetworkThatCannotBeLookedAtIsNone)
{
    rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none = {0, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    const ConnectedState own = ConnectedStateWith(nullptr);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(own, (ConnectedState{FALSE, 0}));
}

} // namespace
} // namespace platform
