#include "server/ReportServer.h"

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

constexpr const char* kTarget = "/usage/tokyo/estimated?date=2012-07-02&output=xml";
constexpr LocalTime kNow = std::chrono::local_days{2012y / 7 / 2} + 13h;

// A server on a free port of the loopback interface, answering on a thread of its own.
class ReportServer : public testing::Test {
protected:
    ~ReportServer() override
    {
        m_server.Stop();
        m_thread.join();
    }

    CReportServer m_server{"127.0.0.1", 0, [] { return kNow; }};

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

    Answer ReadAnswer()
    {
        Answer answer;
        http::read(m_socket, m_buffer, answer);
        return answer;
    }

    Answer Request(http::verb method, const std::string& target, unsigned version = 11, const std::string& body = {})
    {
        http::request<http::string_body> request(method, target, version, body);
        request.set(http::field::host, "localhost");
        request.prepare_payload();
        http::write(m_socket, request);
        return ReadAnswer();
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

TEST_F(ReportServer, AnswersWithTheRoutersReport)
{
    const Answer answer = CClient(m_server.Port()).Request(http::verb::get, kTarget);
    EXPECT_EQ(answer.result_int(), 200U);
    EXPECT_EQ(answer.version(), 11U);
    EXPECT_EQ(answer[http::field::content_type], "application/xml; charset=utf-8");
    EXPECT_EQ(answer.body(), AnswerReportRequest("GET", kTarget, kNow).body);
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
    CReportServer server("127.0.0.1", 0, [&now] {
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
    const CReportServer server("127.0.0.1", 0);
    EXPECT_NE(server.Port(), 0);
    EXPECT_EQ(server.Endpoint(), "127.0.0.1:" + std::to_string(server.Port()));
}

TEST(ReportServerLife, RefusesAnInvalidOrForeignAddress)
{
    EXPECT_THROW(CReportServer("not an address", 0), std::runtime_error);
    EXPECT_THROW(CReportServer("192.0.2.1", 0), std::runtime_error); // reserved for documentation
}

TEST(ReportServerLife, StopBeforeRunMakesRunReturn)
{
    CReportServer server("127.0.0.1", 0);
    server.Stop();
    server.Run();
    EXPECT_NE(server.Port(), 0);
}

TEST(ReportServerLife, SignalEndsRun)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        CReportServer server("127.0.0.1", 0);
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
