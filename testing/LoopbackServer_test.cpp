#include "testing/RawClient.h"

#include <chrono>
#include <gmock/gmock.h>
#include <optional>

namespace testing_support {
namespace {

namespace asio = boost::asio;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

TEST(LoopbackServer, GivesStatusHeadersAndBody)
{
    boost::system::error_code end;
    EXPECT_EQ(AskOnce({.status = 404, .body = "gone", .headers = {{"X-One", "1"}, {"Connection", "close"}}}, &end),
              "HTTP/1.1 404 Status\r\nX-One: 1\r\nConnection: close\r\nContent-Length: 4\r\n\r\ngone");
    EXPECT_EQ(end, asio::error::eof);
}

TEST(LoopbackServer, GivesChunksWithoutALength)
{
    boost::system::error_code end;
    const std::string all =
        AskOnce({.body = std::string(1001, 'x'), .headers = {{"Connection", "close"}}, .chunked = true}, &end);
    EXPECT_EQ(all, "HTTP/1.1 200 Status\r\nConnection: close\r\nTransfer-Encoding: chunked\r\n\r\n3e8\r\n" +
                       std::string(1000, 'x') + "\r\n1\r\nx\r\n0\r\n\r\n");
}

TEST(LoopbackServer, GivesAnEndlessBodyUntilTheClientEndsTheConnection)
{
    CLoopbackServer server(Always({.body = "again", .endless = true}));
    {
        CRawClient client(server.Port());
        client.Ask("/");
        EXPECT_THAT(client.ReadTo("5\r\nagain\r\n5\r\nagain\r\n"), HasSubstr("\r\nTransfer-Encoding: chunked\r\n"));
    }
    CRawClient next(server.Port()); // the server still answers
    next.Ask("/");
    next.ReadTo("again");
}

TEST(LoopbackServer, GivesNoBodyWithAStatusThatHasNone)
{
    for (const DWORD status : {204U, 304U}) {
        boost::system::error_code end;
        const std::string all = AskOnce({.status = status, .body = "body", .headers = {{"Connection", "close"}}}, &end);
        EXPECT_EQ(all, "HTTP/1.1 " + std::to_string(status) + " Status\r\nConnection: close\r\n\r\n");
    }
}

TEST(LoopbackServer, RecordsRequestsOfAKeptConnection)
{
    const CLoopbackServer server(Always({.body = "yes"}));
    CRawClient client(server.Port());
    for (const char* target : {"/a?b=c", "/d"}) {
        client.Ask(target);
        EXPECT_THAT(client.ReadTo("yes"), StartsWith("HTTP/1.1 200 "));
    }
    CRawClient other(server.Port());
    other.Ask("/e");
    other.ReadTo("yes");
    const std::vector<HttpExchange> exchanges = server.Exchanges();
    ASSERT_EQ(exchanges.size(), 3U);
    EXPECT_EQ(exchanges[0].method, "GET");
    EXPECT_EQ(exchanges[0].target, "/a?b=c");
    EXPECT_EQ(exchanges[0].host, "here");
    EXPECT_EQ(exchanges[0].agent, "Tester");
    EXPECT_EQ(exchanges[0].headers.size(), 2U);
    EXPECT_EQ(FieldOf(exchanges[0], "HOST"), "here");
    EXPECT_EQ(FieldOf(exchanges[0], "User-Agents"), "");
    EXPECT_EQ(exchanges[0].connection, 1U);
    EXPECT_EQ(exchanges[1].target, "/d");
    EXPECT_EQ(exchanges[1].connection, 1U);
    EXPECT_EQ(exchanges[2].connection, 2U);
    EXPECT_EQ(server.ConnectionCount(), 2U);
    EXPECT_EQ(server.OpenConnectionCount(), 2U);
}

TEST(LoopbackServer, HandlerSeesTheRequest)
{
    const CLoopbackServer server(
        [](const HttpExchange& exchange) { return HttpAnswer{.body = exchange.target + "!"}; });
    CRawClient client(server.Port());
    client.Ask("/one");
    EXPECT_THAT(client.ReadTo("!"), EndsWith("/one!"));
    client.Ask("/two");
    EXPECT_THAT(client.ReadTo("!"), EndsWith("/two!"));
}

TEST(LoopbackServer, SendsPreludeBeforeTheHeader)
{
    CLoopbackServer server(Always({.body = "yes"}));
    server.SetPrelude("HTTP/1.1 100 Continue\r\n\r\n");
    CRawClient client(server.Port());
    client.Ask("/");
    EXPECT_THAT(client.ReadTo("yes"), StartsWith("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 Status\r\n"));
}

TEST(LoopbackServer, PlaysAScriptByteForByte)
{
    using std::chrono::milliseconds;
    boost::system::error_code end;
    EXPECT_EQ(AskOnce({.script = HttpScript{{{"a"}, {std::string("\0b", 2), 3}, {"c", 1, milliseconds(1)}}}}, &end),
              std::string("a\0b\0b\0bc", 8));
    EXPECT_EQ(end, asio::error::eof);
    EXPECT_EQ(AskOnce({.script = HttpScript{{{"half"}}, HttpScript::End::kHalfClose}}, &end), "half");
    EXPECT_EQ(end, asio::error::eof);
}

TEST(LoopbackServer, ServesAConnectionAgainAfterAScriptThatGoesOn)
{
    const CLoopbackServer server(Always({.script = HttpScript{{{"yes"}}, HttpScript::End::kGoOn}}));
    CRawClient client(server.Port());
    for (int request = 0; request < 2; ++request) {
        client.Ask("/");
        EXPECT_EQ(client.ReadTo("yes"), "yes");
    }
}

TEST(LoopbackServer, GreetsAsManyConnectionsAsItIsTold)
{
    CLoopbackServer server(Always({.body = "yes"}));
    server.SetGreeting({{{"go away"}}}, 2);
    for (int greeted = 0; greeted < 2; ++greeted) {
        boost::system::error_code end;
        EXPECT_EQ(CRawClient(server.Port()).ReadAll(&end), "go away");
        EXPECT_EQ(end, asio::error::eof);
    }
    CRawClient client(server.Port());
    client.Ask("/");
    EXPECT_THAT(client.ReadTo("yes"), StartsWith("HTTP/1.1 200 "));
}

TEST(LoopbackServer, ClosesEarlyWithoutAByte)
{
    for (const HttpFault fault : {HttpFault::kClosedEarly, HttpFault::kRefused}) {
        boost::system::error_code end;
        EXPECT_EQ(AskOnce({.body = "body", .fault = fault}, &end), "");
        EXPECT_EQ(end, asio::error::eof);
    }
}

TEST(LoopbackServer, GarbageIsNoHttp)
{
    boost::system::error_code end;
    const std::string all = AskOnce({.body = "body", .fault = HttpFault::kGarbage}, &end);
    EXPECT_FALSE(all.empty());
    EXPECT_THAT(all, testing::Not(StartsWith("HTTP")));
    EXPECT_EQ(end, asio::error::eof);
}

TEST(LoopbackServer, ShortBodyEndsHalfWay)
{
    boost::system::error_code end;
    EXPECT_EQ(AskOnce({.body = "0123456789", .fault = HttpFault::kShortBody}, &end),
              "HTTP/1.1 200 Status\r\nContent-Length: 10\r\n\r\n01234");
    EXPECT_EQ(end, asio::error::eof);
    EXPECT_EQ(AskOnce({.body = "0123456789", .chunked = true, .fault = HttpFault::kShortBody}, &end),
              "HTTP/1.1 200 Status\r\nTransfer-Encoding: chunked\r\n\r\na\r\n01234");
    EXPECT_EQ(end, asio::error::eof);
}

TEST(LoopbackServer, StallsAfterHalfOfTheBodyUntilItGoes)
{
    std::optional<CLoopbackServer> server(std::in_place,
                                          Always({.body = "0123456789", .fault = HttpFault::kStalledBody}));
    CRawClient client(server->Port());
    client.Ask("/");
    EXPECT_THAT(client.ReadTo("01234"), HasSubstr("Content-Length: 10\r\n"));
    server.reset();
    boost::system::error_code end;
    EXPECT_EQ(client.ReadAll(&end), "");
    EXPECT_TRUE(end);
}

TEST(LoopbackServer, LongBodyIsTwiceItsLengthAndTheConnectionGoesOn)
{
    const CLoopbackServer server(Always({.body = "0123456789", .fault = HttpFault::kLongBody}));
    CRawClient client(server.Port());
    for (int request = 0; request < 2; ++request) {
        client.Ask("/");
        EXPECT_EQ(client.ReadTo("9"), "HTTP/1.1 200 Status\r\nContent-Length: 5\r\n\r\n0123456789");
    }
}

TEST(LoopbackServer, EndsStalledConnectionsAndGoesOn)
{
    CLoopbackServer server([](const HttpExchange& exchange) {
        return exchange.target == "/stalled"
                   ? HttpAnswer{.fault = HttpFault::kStalled}
                   : HttpAnswer{.body = "0123456789",
                                .fault = exchange.target == "/half" ? HttpFault::kStalledBody : HttpFault::kNone};
    });
    EXPECT_FALSE(server.EndStalled(std::chrono::seconds(0)));
    CRawClient kept(server.Port());
    for (const char* target : {"/stalled", "/half"}) {
        kept.Ask("/");
        kept.ReadTo("9");
        CRawClient client(server.Port());
        client.Ask(target);
        EXPECT_TRUE(server.EndStalled(std::chrono::seconds(30)));
        boost::system::error_code end;
        EXPECT_EQ(client.ReadAll(&end).ends_with("01234"), target == std::string("/half"));
        EXPECT_EQ(end, asio::error::eof);
    }
    kept.Ask("/");
    EXPECT_THAT(kept.ReadTo("9"), StartsWith("HTTP/1.1 200 "));
    EXPECT_FALSE(server.EndStalled(std::chrono::seconds(0)));
}

TEST(LoopbackServer, EndsWhileConnectionsStallOrWait)
{
    std::optional<CLoopbackServer> server(std::in_place, [](const HttpExchange& exchange) {
        return exchange.target == "/stalled" ? HttpAnswer{.fault = HttpFault::kStalled}
                                             : HttpAnswer{.latencyMs = 600'000};
    });
    CRawClient stalled(server->Port());
    stalled.Ask("/stalled");
    CRawClient waiting(server->Port());
    waiting.Ask("/waiting");
    CRawClient silent(server->Port());
    server.reset();
    for (CRawClient* client : {&stalled, &waiting, &silent}) {
        boost::system::error_code end;
        EXPECT_EQ(client->ReadAll(&end), "");
        EXPECT_TRUE(end);
    }
}

TEST(LoopbackServer, AnswersAfterItsLatency)
{
    const CLoopbackServer server(Always({.body = "yes", .latencyMs = 50}));
    CRawClient client(server.Port());
    const auto start = std::chrono::steady_clock::now();
    client.Ask("/");
    client.ReadTo("yes");
    // The clock of the server's timer may be coarser than this one.
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}

TEST(LoopbackServer, ServesOthersWhileOneWaits)
{
    const CLoopbackServer server([](const HttpExchange& exchange) {
        return HttpAnswer{.body = "yes", .latencyMs = exchange.target == "/slow" ? 600'000U : 0U};
    });
    CRawClient slow(server.Port());
    slow.Ask("/slow");
    CRawClient quick(server.Port());
    quick.Ask("/quick");
    EXPECT_THAT(quick.ReadTo("yes"), StartsWith("HTTP/1.1 200 "));
}

TEST(LoopbackServer, OutlivesClientsThatLeave)
{
    const CLoopbackServer server(Always({.body = std::string(3'000'000, 'x')}));
    {
        CRawClient leaving(server.Port());
        leaving.Ask("/");
    }
    CRawClient client(server.Port());
    client.Ask("/");
    EXPECT_THAT(client.ReadTo("\r\n\r\n"), StartsWith("HTTP/1.1 200 "));
}

TEST(ClosedPort, RefusesConnections)
{
    const CClosedPort port;
    ASSERT_NE(port.Port(), 0);
    EXPECT_THROW(CRawClient client(port.Port()), boost::system::system_error);
}

} // namespace
} // namespace testing_support
