// The limit of silence, of Linux and the simulated machine: Windows has its own. Apart from the other tests because it
// lasts 30 s where time is real.
#include "platform/contract/HttpTest.h"

namespace contract {
namespace {

using testing_support::HttpAnswer;
using testing_support::HttpExchange;
using testing_support::HttpFault;

constexpr unsigned kSilenceLimitMs = 30'000;
constexpr unsigned kBeforeItMs = kSilenceLimitMs - 500;

using HttpSilence = HttpTest;

TEST_F(HttpSilence, EndsTransfersAsFailedBeforeTheHeaderAndInTheBody)
{
    Serve([](const HttpExchange& exchange) {
        return HttpAnswer{.body = "0123456789",
                          .fault = exchange.target == "/header" ? HttpFault::kStalled : HttpFault::kStalledBody};
    });
    // Both at a time, to wait only once.
    const std::int64_t start = ClockMs();
    CRunningThread header([this] {
        const platform::HttpSessionPtr session = platform::OpenHttpSession(L"Contract Test", 1);
        EXPECT_FALSE(platform::SendHttpRequest(OpenAt(session, m_place, L"/header")));
    });
    CRunningThread body([this] {
        const platform::HttpSessionPtr session = platform::OpenHttpSession(L"Contract Test", 1);
        const platform::HttpRequestPtr request = OpenAt(session, m_place, L"/body");
        EXPECT_TRUE(platform::SendHttpRequest(request));
        bool isBroken = false;
        EXPECT_EQ(ReadBody(request, &isBroken), "01234");
        EXPECT_TRUE(isBroken);
    });
    LetPass(kBeforeItMs);
    EXPECT_FALSE(header.HasEnded());
    EXPECT_FALSE(body.HasEnded());
    header.Join();
    body.Join();
    EXPECT_LT(ClockMs() - start, static_cast<std::int64_t>(kSilenceLimitMs) + kLongMs);
}

} // namespace
} // namespace contract
