#include "server/PollStatistics.h"

#include <gmock/gmock.h>

#include <thread>

namespace reportd {
namespace {

using namespace std::chrono_literals;
using catalogue::kKansai;
using catalogue::kTokyo;

constexpr LocalTime kNow = std::chrono::local_days{2026y / 11 / 22} + 13h;

TEST(PollStatistics, CompanyWithoutPollsHasZeros)
{
    const CPollStatistics statistics;
    EXPECT_EQ(statistics.Of(kTokyo), CPollStatistics::Company{});
}

TEST(PollStatistics, CountsEachCompanyByItself)
{
    CPollStatistics statistics;
    statistics.CountAttempt(kTokyo);
    statistics.CountAttempt(kTokyo);
    statistics.CountAttempt(kTokyo);
    statistics.CountFailure(kTokyo, "timeout");
    statistics.CountFailure(kTokyo, "timeout");
    statistics.CountFailure(kTokyo, "frozen");
    statistics.CountLayoutChange(kTokyo);
    statistics.CountAttempt(kKansai);
    const CPollStatistics::Company tokyo{
        .attempts = 3, .layoutChanges = 1, .failures = {{"frozen", 1}, {"timeout", 2}}};
    EXPECT_EQ(statistics.Of(kTokyo), tokyo);
    EXPECT_EQ(statistics.Of(kKansai), CPollStatistics::Company{.attempts = 1});
}

TEST(PollStatistics, KeepsTheNewestSuccess)
{
    CPollStatistics statistics;
    statistics.NoteSuccess(kKansai, kNow - 10min, kNow - 20min);
    statistics.NoteSuccess(kKansai, kNow, kNow - 5min);
    EXPECT_EQ(statistics.Of(kKansai).lastSuccess, kNow);
    EXPECT_EQ(statistics.Of(kKansai).published, kNow - 5min);
}

TEST(PollStatistics, LosesNoCountWhenThreadsCountAtOnce)
{
    CPollStatistics statistics;
    const auto count = [&statistics] {
        for (int i = 0; i < 1000; ++i) {
            statistics.CountAttempt(kTokyo);
            statistics.CountFailure(kTokyo, "refused");
        }
    };
    std::thread other(count);
    count();
    other.join();
    EXPECT_EQ(statistics.Of(kTokyo).attempts, 2000U);
    EXPECT_EQ(statistics.Of(kTokyo).failures.at("refused"), 2000U);
}

} // namespace
} // namespace reportd
