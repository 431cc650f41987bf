#include "server/ReportServer.h"

#include "server/SampleSource.h"
#include "testing/Answering.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>
#include <gmock/gmock.h>

#include <csignal>
#include <thread>

namespace reportd {
namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using asio::ip::tcp;
using namespace std::chrono_literals;
using Answer = http::response<http::string_body>;

constexpr std::uint64_t kLarge = std::uint64_t{100} << 20;
constexpr const char* kTarget = "/usage/tokyo/estimated?date=2012-07-02&output=xml";
constexpr LocalTime kNow = std::chrono::local_days{2012y / 7 / 2} + 13h;

// The answers of sample data.
struct SampleAnswers {
    CSampleSource source;
    CAnswers answers{source, nullptr, {}};
};

// A server on a free port of the loopback interface, answering on a thread of its own.
class ReportServer : public testing::Test {
protected:
    ~ReportServer() override
    {
        m_server.Stop();
        m_thread.join();
    }

    SampleAnswers m_sample;
    CReportServer m_server{"127.0.0.1", 0, m_sample.answers, [] { return kNow; }};

private:
    std::thread m_thread{[this] { m_server.Run(); }};
};

// One client connection.
class CClient {
public:
    explicit CClient(unsigned short port) { m_socket.connect({asio::ip::address_v4::loopback(), port}); }

    // What the server does not take before it closes the connection is lost.
    void Write(const std::string& bytes)
    {
        boost::system::error_code lost;
        asio::write(m_socket, asio::buffer(bytes), lost);
    }

    Answer ReadAnswer(std::uint64_t bodyLimit = std::uint64_t{1} << 20)
    {
        http::response_parser<http::string_body> parser;
        parser.body_limit(bodyLimit);
        http::read(m_socket, m_buffer, parser);
        return parser.release();
    }

    Answer Request(http::verb method, const std::string& target, unsigned version = 11, const std::string& body = {},
                   std::uint64_t bodyLimit = std::uint64_t{1} << 20)
    {
        http::request<http::string_body> request(method, target, version, body);
        request.set(http::field::host, "localhost");
        request.prepare_payload();
        http::write(m_socket, request);
        return ReadAnswer(bodyLimit);
    }

    // Whether something has come that was not read yet.
    bool HasBytes() { return m_socket.available() > 0; }

    // Whether the server has closed the connection, and not for its silence; waits until it does or sends something.
    bool IsClosed()
    {
        const auto start = std::chrono::steady_clock::now();
        std::array<char, 1> byte{};
        boost::system::error_code error;
        const std::size_t size = m_socket.read_some(asio::buffer(byte), error);
        return size == 0 && error && std::chrono::steady_clock::now() - start < 20s;
    }

private:
    asio::io_context m_context;
    tcp::socket m_socket{m_context};
    boost::beast::flat_buffer m_buffer;
};

// What a server is to answer.
std::string Expected(const std::string& target, LocalTime now = kNow)
{
    SampleAnswers sample;
    return testing_support::BodyOf(testing_support::Get(sample.answers, target, now));
}

TEST_F(ReportServer, AnswersWithTheReport)
{
    const Answer answer = CClient(m_server.Port()).Request(http::verb::get, kTarget);
    EXPECT_EQ(answer.result_int(), 200U);
    EXPECT_EQ(answer.version(), 11U);
    EXPECT_EQ(answer[http::field::content_type], "application/xml; charset=utf-8");
    EXPECT_EQ(answer.body(), Expected(kTarget));
}

TEST_F(ReportServer, SaysThatTheDataIsASampleInEveryAnswer)
{
    CClient client(m_server.Port());
    EXPECT_EQ(client.Request(http::verb::get, kTarget)["X-Ampora-Source"], "sample");
    EXPECT_EQ(client.Request(http::verb::get, "/")["X-Ampora-Source"], "sample");
}

TEST_F(ReportServer, KeepsTheConnectionForFurtherRequestsWhateverTheStatus)
{
    CClient client(m_server.Port());
    EXPECT_EQ(client.Request(http::verb::get, kTarget).result_int(), 200U);
    EXPECT_EQ(client.Request(http::verb::get, "/none").result_int(), 404U);
    const Answer unavailable = client.Request(http::verb::get, "/usage/tokyo/instant?date=2012-07-03&output=xml");
    EXPECT_EQ(unavailable.result_int(), 503U);
    EXPECT_EQ(unavailable[http::field::content_length], "0");
    const Answer refused = client.Request(http::verb::post, kTarget, 11, "data=1");
    EXPECT_EQ(refused.result_int(), 405U);
    EXPECT_EQ(refused[http::field::allow], "GET");
    EXPECT_EQ(client.Request(http::verb::get, kTarget).result_int(), 200U);
}

TEST_F(ReportServer, ServesConnectionsSideBySide)
{
    CClient first(m_server.Port());
    CClient second(m_server.Port());
    EXPECT_EQ(second.Request(http::verb::get, kTarget).result_int(), 200U);
    EXPECT_EQ(first.Request(http::verb::get, kTarget).result_int(), 200U);
}

TEST_F(ReportServer, ClosesTheConnectionWhenTheClientAsksForIt)
{
    CClient client(m_server.Port());
    client.Write(std::string("GET ") + kTarget + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(client.ReadAnswer().result_int(), 200U);
    EXPECT_TRUE(client.IsClosed());
}

TEST_F(ReportServer, ClosesTheConnectionOfAnOldClient)
{
    CClient client(m_server.Port());
    EXPECT_EQ(client.Request(http::verb::get, kTarget, 10).result_int(), 200U);
    EXPECT_TRUE(client.IsClosed());
}

TEST_F(ReportServer, ClosesTheConnectionOnBytesThatAreNotHttp)
{
    CClient client(m_server.Port());
    client.Write("\x16\x03\x01 not http\r\n\r\n");
    EXPECT_TRUE(client.IsClosed());
    EXPECT_EQ(CClient(m_server.Port()).Request(http::verb::get, kTarget).result_int(), 200U);
}

TEST_F(ReportServer, ClosesTheConnectionOnAnEndlessHeader)
{
    CClient client(m_server.Port());
    client.Write("GET / HTTP/1.1\r\nX: " + std::string(9 * 1024, 'x'));
    EXPECT_TRUE(client.IsClosed());
}

TEST_F(ReportServer, ClosesTheConnectionOnAnEndlessChunkHeader)
{
    // Symptom: the memory held whatever a client sent of it within 30 seconds.
    CClient client(m_server.Port());
    client.Write("POST / HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n1;" + std::string(200 * 1024, 'x'));
    EXPECT_TRUE(client.IsClosed());
}

TEST_F(ReportServer, AsksForABodyThatWaitsForThat)
{
    // Symptom: a client that waited for "100 Continue" got no answer until it gave up waiting.
    CClient client(m_server.Port());
    client.Write("POST / HTTP/1.1\r\nHost: x\r\nExpect: 100-Continue\r\nContent-Length: 3\r\n\r\n");
    EXPECT_EQ(client.ReadAnswer().result_int(), 100U);
    client.Write("x=1");
    EXPECT_EQ(client.ReadAnswer().result_int(), 405U);
    // Without a body, and for an old client, there is nothing to ask for.
    client.Write(std::string("GET ") + kTarget + " HTTP/1.1\r\nHost: x\r\nExpect: 100-continue\r\n\r\n");
    EXPECT_EQ(client.ReadAnswer().result_int(), 200U);
    client.Write("POST / HTTP/1.0\r\nExpect: 100-continue\r\nContent-Length: 3\r\n\r\nx=1");
    EXPECT_EQ(client.ReadAnswer().result_int(), 405U);
}

TEST_F(ReportServer, EveryAnswerHasADateOfHttp)
{
    CClient client(m_server.Port());
    for (const char* const target : {kTarget, "/none"}) {
        EXPECT_THAT(std::string(client.Request(http::verb::get, target)[http::field::date]),
                    testing::MatchesRegex("..., .. ... 20.. ..:..:.. GMT"))
            << target;
    }
}

TEST_F(ReportServer, AnswersRequestsThatComeTogetherInTheirOrder)
{
    CClient client(m_server.Port());
    const std::string get = std::string("GET ") + kTarget + " HTTP/1.1\r\nHost: x\r\n\r\n";
    const std::string post = "POST /healthz HTTP/1.1\r\nHost: x\r\nContent-Length: 5\r\n\r\nGET /";
    std::string all;
    for (int i = 0; i < 100; ++i) {
        all += get;
        all += post;
        all += "GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n";
    }
    std::thread writer([&] { client.Write(all); });
    const std::string report = Expected(kTarget);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(client.ReadAnswer().body(), report);
        EXPECT_EQ(client.ReadAnswer().result_int(), 405U);
        EXPECT_EQ(client.ReadAnswer().body(), "ok\n");
    }
    writer.join();
}

TEST_F(ReportServer, TakesARequestThatComesByteByByte)
{
    CClient client(m_server.Port());
    const std::string request = std::string("POST ") + kTarget +
                                " HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n";
    for (const char byte : request) {
        client.Write(std::string(1, byte));
    }
    EXPECT_EQ(client.ReadAnswer().result_int(), 405U);
    EXPECT_EQ(client.Request(http::verb::get, kTarget).result_int(), 200U);
}

TEST_F(ReportServer, KeepsTheConnectionOfAnOldClientThatAsksForIt)
{
    CClient client(m_server.Port());
    const std::string request = std::string("GET ") + kTarget + " HTTP/1.0\r\nConnection: keep-alive\r\n\r\n";
    for (int i = 0; i < 2; ++i) {
        client.Write(request);
        const Answer answer = client.ReadAnswer();
        EXPECT_EQ(answer.result_int(), 200U);
        EXPECT_EQ(answer.version(), 10U);
        EXPECT_EQ(answer[http::field::connection], "keep-alive");
    }
}

TEST_F(ReportServer, ClientThatHasTheReportGetsNoBody)
{
    CClient client(m_server.Port());
    const std::string etag{client.Request(http::verb::get, kTarget)[http::field::etag]};
    for (const std::string& fields :
         {"If-None-Match: " + etag, "if-none-match: \"x\"\r\nIF-NONE-MATCH: " + etag + " "}) {
        client.Write(std::string("GET ") + kTarget + " HTTP/1.1\r\nHost: x\r\n" + fields + "\r\n\r\n");
        const Answer same = client.ReadAnswer();
        EXPECT_EQ(same.result_int(), 304U);
        EXPECT_EQ(same.body(), "");
        EXPECT_EQ(same.count(http::field::content_length), 0U);
        EXPECT_EQ(same[http::field::etag], etag);
    }
    EXPECT_EQ(client.Request(http::verb::get, kTarget).result_int(), 200U);
}

TEST_F(ReportServer, FieldsOfOneRequestDoNotReachTheNext)
{
    CClient client(m_server.Port());
    const std::string target = "/v1/series?company=tokyo&kind=supply&from=2012-07-02&to=2012-07-02";
    const std::string get = "GET " + target + " HTTP/1.1\r\nHost: x\r\n";
    client.Write(get + "Accept: text/csv\r\nIf-None-Match: *\r\n\r\n" + get + "Accept: text/csv\r\n\r\n" + get +
                 "\r\n");
    EXPECT_EQ(client.ReadAnswer().result_int(), 304U);
    EXPECT_EQ(client.ReadAnswer()[http::field::content_type], "text/csv; charset=utf-8; header=present");
    EXPECT_EQ(client.ReadAnswer()[http::field::content_type], "application/json");
}

TEST_F(ReportServer, AnswersOthersWhileItMakesALargeAnswer)
{
    const std::string year = "/v1/series?company=tokyo&kind=instant_usage&from=2011-07-01&to=2012-06-30";
    CClient large(m_server.Port());
    large.Write("GET " + year + " HTTP/1.1\r\nHost: x\r\n\r\n");
    CClient small(m_server.Port());
    int answered = 0;
    while (!large.HasBytes()) {
        EXPECT_EQ(small.Request(http::verb::get, "/healthz").result_int(), 200U);
        ++answered;
    }
    EXPECT_GE(answered, 2);
    EXPECT_EQ(large.ReadAnswer(kLarge).body(), Expected(year));
}

TEST_F(ReportServer, LosesNothingWhenTheClientOfALargeAnswerGoes)
{
    const std::string year = "/v1/series?company=tokyo&kind=instant_usage&from=2011-07-01&to=2012-06-30";
    for (int i = 0; i < 10; ++i) { // more than may exist at a time
        CClient(m_server.Port()).Write("GET " + year + " HTTP/1.1\r\nHost: x\r\n\r\n");
        EXPECT_EQ(CClient(m_server.Port()).Request(http::verb::get, kTarget).result_int(), 200U);
    }
    const auto isAnswered = [&] {
        return CClient(m_server.Port()).Request(http::verb::get, year, 11, {}, kLarge).result_int() == 200U;
    };
    const auto end = std::chrono::steady_clock::now() + 30s;
    bool answered = isAnswered();
    while (!answered && std::chrono::steady_clock::now() < end) {
        answered = isAnswered();
    }
    EXPECT_TRUE(answered);
}

TEST_F(ReportServer, IdleConnectionHoldsNoAnswer)
{
    const std::string months = "/v1/series?company=tokyo&kind=instant_usage&from=2012-04-01&to=2012-05-31";
    std::vector<std::unique_ptr<CClient>> clients;
    for (int i = 0; i < 6; ++i) { // more large answers than may exist at a time
        clients.push_back(std::make_unique<CClient>(m_server.Port()));
        EXPECT_EQ(clients.back()->Request(http::verb::get, months, 11, {}, kLarge).result_int(), 200U) << i;
    }
}

TEST_F(ReportServer, HostileTargetsGetAnAnswerOfOurOwnWords)
{
    for (const std::string& target :
         {"/" + std::string(7000, 'a'), std::string("/%0d%0aX-Evil:1"),
          std::string("/v1/series?company=%0d%0aX-Evil:1"), std::string("/%00%ff"),
          std::string("/usage/tokyo/actual?date=%32012-07-02&output=xml"),
          std::string("/company/<script>alert(1)</script>?lang=<b>"), std::string("/\xff\xfe")}) {
        CClient client(m_server.Port());
        client.Write("GET " + target + " HTTP/1.1\r\nHost: x\r\n\r\n");
        const Answer answer = client.ReadAnswer();
        EXPECT_THAT(answer.result_int(), testing::AnyOf(400U, 404U)) << target;
        EXPECT_EQ(answer.count("X-Evil"), 0U) << target;
        EXPECT_THAT(answer.body(), testing::Not(testing::HasSubstr("<"))) << target;
        EXPECT_EQ(client.Request(http::verb::get, kTarget).result_int(), 200U);
    }
}

TEST_F(ReportServer, ServesAClientThatCameWhileThereWereTooMany)
{
    asio::io_context context;
    std::vector<tcp::socket> idle;
    for (int i = 1; i < 200; ++i) {
        idle.emplace_back(context).connect({asio::ip::address_v4::loopback(), m_server.Port()});
    }
    CClient last(m_server.Port());
    EXPECT_EQ(last.Request(http::verb::get, kTarget).result_int(), 200U);
    CClient late(m_server.Port());
    late.Write(std::string("GET ") + kTarget + " HTTP/1.1\r\nHost: x\r\n\r\n");
    EXPECT_EQ(last.Request(http::verb::get, kTarget).result_int(), 200U);
    EXPECT_FALSE(late.HasBytes());
    idle.clear();
    EXPECT_EQ(late.ReadAnswer().result_int(), 200U);
}

TEST_F(ReportServer, ReadsTheClockForEveryRequest)
{
    LocalTime now = kNow;
    SampleAnswers sample;
    CReportServer server("127.0.0.1", 0, sample.answers, [&now] {
        now += 1h;
        return now;
    });
    std::thread thread([&server] { server.Run(); });
    CClient client(server.Port());
    const std::string target = "/usage/tokyo/actual?date=2012-07-02&output=xml";
    const std::string first = client.Request(http::verb::get, target).body();
    const std::string second = client.Request(http::verb::get, target).body();
    EXPECT_LT(first.size(), second.size());
    server.Stop();
    thread.join();
}

TEST(ReportServerLife, EndpointNamesAddressAndChosenPort)
{
    SampleAnswers sample;
    const CReportServer server("127.0.0.1", 0, sample.answers);
    EXPECT_NE(server.Port(), 0);
    EXPECT_EQ(server.Endpoint(), "127.0.0.1:" + std::to_string(server.Port()));
}

TEST(ReportServerLife, RefusesAnInvalidOrForeignAddress)
{
    SampleAnswers sample;
    EXPECT_THROW(CReportServer("not an address", 0, sample.answers), std::runtime_error);
    EXPECT_THROW(CReportServer("192.0.2.1", 0, sample.answers), std::runtime_error); // reserved for documentation
}

TEST(ReportServerLife, StopBeforeRunMakesRunReturn)
{
    SampleAnswers sample;
    CReportServer server("127.0.0.1", 0, sample.answers);
    server.Stop();
    server.Run();
    EXPECT_NE(server.Port(), 0);
}

TEST(ReportServerLife, SignalEndsRun)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        SampleAnswers sample;
        CReportServer server("127.0.0.1", 0, sample.answers);
        server.StopOnSignals();
        std::raise(signal);
        server.Run();
        EXPECT_NE(server.Port(), 0);
    }
}

TEST(ReportServerLife, SystemClockIsLaterThanTheFirstSampleDay)
{
    EXPECT_GT(ReadSystemClock(), LocalTime{std::chrono::local_days{2024y / 1 / 1}});
}

} // namespace
} // namespace reportd
