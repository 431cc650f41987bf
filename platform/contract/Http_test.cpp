#include "platform/contract/HttpTest.h"

#include <gmock/gmock.h>
#include <memory>

namespace contract {
namespace {

using platform::OpenHttpRequest;
using platform::QueryHttpStatusCode;
using platform::ReadHttpBody;
using platform::SendHttpRequest;
using testing::Pair;
using testing::StartsWith;
using testing_support::HttpAnswer;
using testing_support::HttpExchange;
using testing_support::HttpFault;

using Http = HttpTest;

constexpr std::size_t kLargeSize = 3'000'000;

// A large body in which every part looks different.
std::string LargeBody()
{
    std::string body(kLargeSize, '\0');
    for (std::size_t i = 0; i < body.size(); ++i) {
        body[i] = static_cast<char>(i * 7 + (i >> 8));
    }
    return body;
}

std::string HostHeaderOf(const Place& place)
{
    return std::string(place.server.begin(), place.server.end()) + ":" + std::to_string(place.port);
}

TEST_F(Http, RequestCarriesMethodTargetHostAndAgent)
{
    Serve({.body = "yes"});
    EXPECT_THAT(Get(L"/a/b%20c?d=%41&e=f/g"), Pair(200U, "yes"));
    const std::vector<HttpExchange> exchanges = WebExchanges();
    ASSERT_EQ(exchanges.size(), 1U);
    EXPECT_EQ(exchanges[0].method, "GET");
    EXPECT_EQ(exchanges[0].target, "/a/b%20c?d=%41&e=f/g");
    EXPECT_EQ(exchanges[0].host, HostHeaderOf(m_place));
    EXPECT_EQ(exchanges[0].agent, "Contract Test");
}

TEST_F(Http, EmptyObjectIsTheRoot)
{
    Serve({.body = "yes"});
    EXPECT_THAT(Get(L""), Pair(200U, "yes"));
    EXPECT_EQ(WebExchanges().at(0).target, "/");
}

TEST_F(Http, OpeningTouchesNoNetwork)
{
    Serve(HttpAnswer{});
    EXPECT_NE(Open(), nullptr);
    EXPECT_TRUE(WebExchanges().empty());
}

TEST_F(Http, StatusIsUnknownBeforeTheAnswer)
{
    Serve(HttpAnswer{});
    DWORD status = 77;
    EXPECT_FALSE(QueryHttpStatusCode(Open(), &status));
}

TEST_F(Http, BodyComesInPiecesOfAtMostTheSizeAskedFor)
{
    Serve({.body = "0123456789"});
    const platform::HttpRequestPtr request = Open();
    ASSERT_TRUE(SendHttpRequest(request));
    std::string body;
    for (;;) {
        char piece[4] = {'#', '#', '#', '#'};
        EXPECT_EQ(ReadHttpBody(request, piece, 0), 0U);
        const std::size_t size = ReadHttpBody(request, piece, 3);
        ASSERT_LE(size, 3U);
        EXPECT_EQ(piece[3], '#');
        if (size == 0) {
            break;
        }
        body.append(piece, size);
    }
    EXPECT_EQ(body, "0123456789");
    char piece[4];
    EXPECT_EQ(ReadHttpBody(request, piece, sizeof piece), 0U); // the end stays the end
}

TEST_F(Http, PartOfABodyIsReadBeforeTheRestComes)
{
    // Symptom: on Windows one read waited for the whole body, so that a dripping one had no end.
    Serve({.body = "0123456789", .fault = HttpFault::kStalledBody});
    const platform::HttpRequestPtr request = Open();
    ASSERT_TRUE(SendHttpRequest(request));
    char piece[100];
    EXPECT_EQ(ReadHttpBody(request, piece, sizeof piece), 5U);
}

TEST_F(Http, EmptyBodyEndsAtOnce)
{
    Serve(HttpAnswer{});
    EXPECT_THAT(Get(), Pair(200U, ""));
}

TEST_F(Http, BodyIsBytesWhateverTheirValue)
{
    std::string bytes;
    for (int value = 0; value < 256; ++value) {
        bytes += static_cast<char>(value);
    }
    Serve({.body = bytes, .headers = {{"Content-Type", "text/xml; charset=Shift_JIS"}}});
    EXPECT_THAT(Get(), Pair(200U, bytes));
}

TEST_F(Http, BodyIsNotDecompressed)
{
    Serve({.body = "\x1f\x8b no gzip at all", .headers = {{"Content-Encoding", "gzip"}}});
    EXPECT_THAT(Get(), Pair(200U, "\x1f\x8b no gzip at all"));
}

TEST_F(Http, LargeBodyComesWhole)
{
    const std::string body = LargeBody();
    Serve({.body = body});
    const auto [status, received] = Get();
    EXPECT_EQ(status, 200U);
    EXPECT_TRUE(received == body) << received.size();
}

TEST_F(Http, ChunkedBodyComesWhole)
{
    const std::string body = LargeBody();
    Serve([&body](const HttpExchange& exchange) {
        return HttpAnswer{.body = exchange.target == "/large" ? body : exchange.target.substr(1), .chunked = true};
    });
    EXPECT_THAT(Get(L"/small"), Pair(200U, "small"));
    EXPECT_THAT(Get(L"/"), Pair(200U, ""));
    const auto [status, received] = Get(L"/large");
    EXPECT_EQ(status, 200U);
    EXPECT_TRUE(received == body) << received.size();
}

TEST_F(Http, LateAnswerIsWaitedFor)
{
    Serve({.body = "late", .latencyMs = 300});
    EXPECT_THAT(Get(), Pair(200U, "late"));
}

TEST_F(Http, EveryStatusBelow400HasAReadableBody)
{
    Serve([](const HttpExchange& exchange) {
        return HttpAnswer{.status = static_cast<DWORD>(std::stoul(exchange.target.substr(1))), .body = "body"};
    });
    // Without a Location header no answer redirects.
    for (const DWORD status : {200U, 201U, 203U, 206U, 299U, 300U, 301U, 302U, 303U, 305U, 307U, 399U}) {
        EXPECT_THAT(Get(L"/" + std::to_wstring(status)), Pair(status, "body"));
    }
}

TEST_F(Http, StatusWithoutBodyHasNone)
{
    Serve([](const HttpExchange& exchange) {
        return HttpAnswer{.status = static_cast<DWORD>(std::stoul(exchange.target.substr(1)))};
    });
    EXPECT_THAT(Get(L"/204"), Pair(204U, ""));
    EXPECT_THAT(Get(L"/304"), Pair(304U, ""));
}

TEST_F(Http, ErrorStatusIsAnAnswerWithOrWithoutBody)
{
    Serve([](const HttpExchange& exchange) {
        const DWORD status = static_cast<DWORD>(std::stoul(exchange.target.substr(1)));
        return HttpAnswer{.status = status, .body = exchange.target.ends_with("b") ? "sorry" : ""};
    });
    for (const DWORD status : {400U, 404U, 500U, 503U}) {
        EXPECT_THAT(Get(L"/" + std::to_wstring(status)), Pair(status, ""));
        EXPECT_THAT(Get(L"/" + std::to_wstring(status) + L"b"), Pair(status, "sorry"));
    }
}

// Keeping connections.

TEST_F(Http, ConnectionIsKeptOverManyRequests)
{
    Serve([](const HttpExchange& exchange) {
        const DWORD status = static_cast<DWORD>(std::stoul(exchange.target.substr(1)));
        return HttpAnswer{.status = status,
                          .body = status == 503 ? "" : "some body",
                          .chunked = exchange.target.ends_with("chunked")};
    });
    int requests = 0;
    for (int round = 0; round < 5; ++round) {
        for (const wchar_t* object : {L"/200", L"/404", L"/503", L"/200chunked", L"/404chunked", L"/500"}) {
            const platform::HttpRequestPtr request = Open(object);
            ASSERT_TRUE(SendHttpRequest(request));
            // The body of an error is left unread.
            if (StatusOf(request) < 400) {
                bool isBroken = false;
                EXPECT_EQ(ReadBody(request, &isBroken), "some body");
                EXPECT_FALSE(isBroken);
            }
            ++requests;
        }
    }
    const std::vector<HttpExchange> exchanges = WebExchanges();
    ASSERT_EQ(exchanges.size(), static_cast<std::size_t>(requests));
    for (const HttpExchange& exchange : exchanges) {
        EXPECT_EQ(exchange.connection, 1U) << exchange.target;
    }
}

TEST_F(Http, NewSessionMakesANewConnection)
{
    Serve({.body = "yes"});
    Get();
    platform::CloseHttpSession(m_session);
    m_session = platform::OpenHttpSession(L"Contract Test", 1);
    EXPECT_THAT(Get(), Pair(200U, "yes"));
    const std::vector<HttpExchange> exchanges = WebExchanges();
    ASSERT_EQ(exchanges.size(), 2U);
    // Wine keeps connections beyond their session.
    EXPECT_EQ(exchanges[0].connection == exchanges[1].connection, IsWineInternet());
}

TEST_F(Http, LargeUnreadBodyDoesNotHoldUpTheNextRequest)
{
    Serve([body = LargeBody()](const HttpExchange& exchange) {
        return exchange.target == "/large" ? HttpAnswer{.status = 404, .body = body} : HttpAnswer{.body = "next"};
    });
    for (int round = 0; round < 3; ++round) {
        const platform::HttpRequestPtr request = Open(L"/large");
        ASSERT_TRUE(SendHttpRequest(request));
        EXPECT_EQ(StatusOf(request), 404U);
    }
    EXPECT_THAT(Get(), Pair(200U, "next"));
}

TEST_F(Http, ClosingNoSessionDoesNothing) { platform::CloseHttpSession(nullptr); }

// Redirections.

TEST_F(Http, RedirectionsAreFollowed)
{
    Serve([this](const HttpExchange& exchange) {
        if (exchange.target == "/start/relative?q=1") {
            return HttpAnswer{.status = 302, .body = "elsewhere", .headers = {{"Location", "next?a=b"}}};
        }
        if (exchange.target == "/start/next?a=b") {
            return HttpAnswer{.status = 307, .headers = {{"Location", "/rooted"}}};
        }
        if (exchange.target == "/rooted") {
            const std::string target = "http://" + HostHeaderOf(m_place) + "/absolute";
            return HttpAnswer{.status = 301, .headers = {{"Location", target}}};
        }
        return HttpAnswer{.body = exchange.target == "/absolute" ? "arrived" : "lost"};
    });
    EXPECT_THAT(Get(L"/start/relative?q=1"), Pair(200U, "arrived"));
    EXPECT_EQ(WebExchanges().size(), 4U);
}

TEST_F(Http, RedirectionMayEndInAnError)
{
    Serve([](const HttpExchange& exchange) {
        return exchange.target == "/path" ? HttpAnswer{.status = 303, .headers = {{"Location", "/gone"}}}
                                          : HttpAnswer{.status = 404, .body = "sorry"};
    });
    EXPECT_THAT(Get(), Pair(404U, "sorry"));
}

TEST_F(Http, TenRedirectionsAreFollowed)
{
    Serve([](const HttpExchange& exchange) {
        const int step = std::stoi(exchange.target.substr(1));
        return step < 10 ? HttpAnswer{.status = 302, .headers = {{"Location", "/" + std::to_string(step + 1)}}}
                         : HttpAnswer{.body = "arrived"};
    });
    EXPECT_THAT(Get(L"/0"), Pair(200U, "arrived"));
}

TEST_F(Http, RedirectionInACircleIsNoAnswer)
{
    // Wine follows them until one leads out.
    constexpr std::size_t kMostRounds = 100;
    Serve([rounds = std::make_shared<std::size_t>(0)](const HttpExchange&) {
        return ++*rounds < kMostRounds ? HttpAnswer{.status = 302, .headers = {{"Location", "/path"}}} : HttpAnswer{};
    });
    const platform::HttpRequestPtr request = Open();
    EXPECT_EQ(SendHttpRequest(request), IsWineInternet());
    DWORD status = 0;
    EXPECT_EQ(QueryHttpStatusCode(request, &status), IsWineInternet());
    EXPECT_EQ(WebExchanges().size() == kMostRounds, IsWineInternet());
}

// Bad answers.

TEST_F(Http, RefusedConnectionIsNoAnswer)
{
    m_place = RefusingPlace();
    const platform::HttpRequestPtr request = Open();
    EXPECT_TRUE(FailsWith(platform::kHttpCannotConnect, [&] { return SendHttpRequest(request); }));
    DWORD status = 0;
    EXPECT_FALSE(QueryHttpStatusCode(request, &status));
}

TEST_F(Http, ShortenedLimitEndsARequestThatStalls)
{
    Serve({.body = "0123456789", .fault = HttpFault::kStalled});
    platform::LimitHttpWaits(m_session, 200);
    const std::int64_t start = ClockMs();
    EXPECT_FALSE(SendHttpRequest(OpenAt(m_session, m_place, L"/")));
    const DWORD error = platform::GetLastErrorCode();
    EXPECT_TRUE(error == platform::kHttpTimedOut || (IsWineInternet() && error == platform::kHttpConnectionAborted))
        << error;
    EXPECT_LT(ClockMs() - start, kLongMs / 2);
}

TEST_F(Http, ConnectionClosedEarlyIsNoAnswer)
{
    Serve({.body = "never seen", .fault = HttpFault::kClosedEarly});
    const platform::HttpRequestPtr request = Open();
    EXPECT_FALSE(SendHttpRequest(request));
    DWORD status = 0;
    EXPECT_FALSE(QueryHttpStatusCode(request, &status));
}

TEST_F(Http, WhatIsNoHttpIsNoAnswer)
{
    Serve({.body = "never seen", .fault = HttpFault::kGarbage});
    // Wine takes it for the body of an answer.
    EXPECT_EQ(SendHttpRequest(Open()), IsWineInternet());
}

TEST_F(Http, BodyShorterThanItsLengthBreaks)
{
    Serve({.body = "0123456789", .fault = HttpFault::kShortBody});
    const platform::HttpRequestPtr request = Open();
    ASSERT_TRUE(SendHttpRequest(request));
    EXPECT_EQ(StatusOf(request), 200U);
    bool isBroken = false;
    EXPECT_EQ(ReadBody(request, &isBroken), "01234");
    EXPECT_TRUE(isBroken);
}

TEST_F(Http, ChunksThatBreakOffBreakTheBody)
{
    Serve({.body = "0123456789", .chunked = true, .fault = HttpFault::kShortBody});
    const platform::HttpRequestPtr request = Open();
    ASSERT_TRUE(SendHttpRequest(request));
    bool isBroken = false;
    EXPECT_EQ(ReadBody(request, &isBroken), "01234");
    // Wine takes the break for the body's end.
    EXPECT_EQ(isBroken, !IsWineInternet());
}

TEST_F(Http, BodyLongerThanItsLengthEndsWhereItSays)
{
    Serve([](const HttpExchange& exchange) {
        return exchange.target == "/long" ? HttpAnswer{.body = "0123456789", .fault = HttpFault::kLongBody}
                                          : HttpAnswer{.body = "good"};
    });
    for (int round = 0; round < 2; ++round) {
        EXPECT_THAT(Get(L"/long"), Pair(200U, "01234"));
        EXPECT_THAT(Get(L"/good"), Pair(200U, "good"));
    }
}

TEST_F(Http, ResetConnectionBreaksTheBody)
{
    Serve({.body = "0123456789", .fault = HttpFault::kReset});
    const platform::HttpRequestPtr request = Open();
    // The reset may overtake the header.
    if (SendHttpRequest(request)) {
        bool isBroken = false;
        EXPECT_THAT("01234", StartsWith(ReadBody(request, &isBroken)));
        EXPECT_TRUE(isBroken);
    }
}

TEST_F(Http, BrokenAnswersDoNotSpoilTheNextRequest)
{
    for (const HttpFault fault : {HttpFault::kClosedEarly, HttpFault::kShortBody, HttpFault::kReset}) {
        Serve([fault](const HttpExchange& exchange) {
            return exchange.target == "/bad" ? HttpAnswer{.body = "0123456789", .fault = fault}
                                             : HttpAnswer{.body = "good"};
        });
        const platform::HttpRequestPtr request = Open(L"/bad");
        if (SendHttpRequest(request)) {
            bool isBroken = false;
            ReadBody(request, &isBroken);
            EXPECT_TRUE(isBroken);
        }
        EXPECT_THAT(Get(L"/good"), Pair(200U, "good"));
    }
}

TEST_F(Http, RequestMayBeDroppedWhileItsBodyStalls)
{
    Serve([](const HttpExchange& exchange) {
        return exchange.target == "/bad" ? HttpAnswer{.body = "0123456789", .fault = HttpFault::kStalledBody}
                                         : HttpAnswer{.body = "good"};
    });
    EXPECT_TRUE(SendHttpRequest(Open(L"/bad")));
    EXPECT_THAT(Get(L"/good"), Pair(200U, "good"));
}

// The connected state.

using HttpConnectedState = ContractTest;

TEST_F(HttpConnectedState, HasNoUnknownBits)
{
    DWORD flags = 0xFFFFFFFF;
    const BOOL result = platform::QueryConnectedState(&flags);
    constexpr DWORD kInstalledModem = 16; // Windows tells too whether dial-up is there at all
    constexpr DWORD kConfigured = 64;     // and whether there is a connection that may not be up
    constexpr DWORD kKnown = platform::kConnectionModem | platform::kConnectionLan | platform::kConnectionProxy |
                             platform::kConnectionOffline | kInstalledModem | kConfigured;
    EXPECT_EQ(flags & ~kKnown, 0U);
    if (result) {
        EXPECT_NE(flags, 0U);
    }
}

} // namespace
} // namespace contract
