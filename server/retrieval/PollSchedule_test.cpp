#include "server/retrieval/PollSchedule.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

constexpr PollPace kTokyo = {.interval = minutes(5), .politeSecond = seconds(180)};
constexpr PollPace kChubu = {.interval = minutes(5), .politeSecond = seconds(0)};
constexpr PollPace kKyushu = {.interval = minutes(5), .politeSecond = seconds(270)};
constexpr seconds kJitter{7};

constexpr LocalTime At(int hour, int minute, int second = 0)
{
    using namespace std::chrono;
    return local_days{year{2026} / month{11} / day{22}} + hours(hour) + minutes(minute) + seconds(second);
}

PollResult Failed(unsigned failures) { return {.failures = failures}; }

TEST(PollSchedule, PollsInThePoliteSecondAfterEachFifthMinute)
{
    EXPECT_EQ(NextPoll(kTokyo, {}, At(12, 3), kJitter), At(12, 8));
    EXPECT_EQ(NextPoll(kChubu, {}, At(12, 5), kJitter), At(12, 10));
    EXPECT_EQ(NextPoll(kKyushu, {}, At(12, 4, 30), kJitter), At(12, 9, 30));
    EXPECT_EQ(NextPoll(kKyushu, {}, At(23, 59, 30), kJitter), At(24, 4, 30));
}

TEST(PollSchedule, KeepsItsPlaceBehindTheSlot)
{
    EXPECT_EQ(NextPoll(kTokyo, {}, At(12, 3, 20), kJitter), At(12, 8, 20)); // the last second of the slot
    EXPECT_EQ(NextPoll(kTokyo, {}, At(12, 3, 21), kJitter), At(12, 13, 7)); // late: the first slot after the interval
    EXPECT_EQ(NextPoll(kTokyo, {}, At(12, 2, 59), kJitter), At(12, 8, 7));  // too early
}

TEST(PollSchedule, NeverPollsBeforeTheIntervalIsOver)
{
    for (const PollPace& pace :
         {kTokyo, kChubu, kKyushu, PollPace{minutes(7), seconds(50)}, {minutes(60), seconds(0)}}) {
        for (int second = 0; second < 3600; ++second) {
            const LocalTime attempted = At(9, 0) + seconds(second);
            const seconds wait = NextPoll(pace, {}, attempted, kJitter) - attempted;
            EXPECT_GE(wait, pace.interval) << second;
            EXPECT_LE(wait, pace.interval + kSlotLength + kJitterLimit) << second;
        }
    }
}

TEST(PollSchedule, TakesTheSlotAfterAnIntervalBetweenSlots)
{
    EXPECT_EQ(NextPoll({minutes(7), seconds(180)}, {}, At(12, 3), kJitter), At(12, 13));
    EXPECT_EQ(NextPoll({minutes(10), seconds(180)}, {}, At(12, 3), kJitter), At(12, 13));
}

TEST(PollSchedule, DoublesTheDelayWithEachFailureUpToAnHour)
{
    for (const auto& [failures, delay] : std::vector<std::pair<unsigned, int>>{
             {0, 5}, {1, 5}, {2, 10}, {3, 20}, {4, 40}, {5, 60}, {6, 60}, {4'000'000'000U, 60}}) {
        EXPECT_EQ(DelayAfter(kTokyo, Failed(failures)), minutes(delay)) << failures;
    }
    EXPECT_EQ(NextPoll(kTokyo, Failed(3), At(12, 3), kJitter), At(12, 23));
}

TEST(PollSchedule, KeepsAnIntervalOfMoreThanAnHourWhateverFails)
{
    const PollPace rare = {.interval = minutes(90), .politeSecond = seconds(0)};
    EXPECT_EQ(DelayAfter(rare, Failed(1)), minutes(90));
    EXPECT_EQ(DelayAfter(rare, Failed(9)), minutes(90));
}

TEST(PollSchedule, ObeysRetryAfterOfAFailureForUpToAnHour)
{
    EXPECT_EQ(DelayAfter(kTokyo, {.failures = 1, .retryAfter = seconds(299)}), minutes(5));
    EXPECT_EQ(DelayAfter(kTokyo, {.failures = 1, .retryAfter = seconds(301)}), seconds(301));
    EXPECT_EQ(DelayAfter(kTokyo, {.failures = 1, .retryAfter = seconds(3600)}), hours(1));
    EXPECT_EQ(DelayAfter(kTokyo, {.failures = 1, .retryAfter = seconds(3601)}), hours(1));
    EXPECT_EQ(DelayAfter(kTokyo, {.failures = 5, .retryAfter = seconds(60)}), hours(1)); // the backoff is longer
    EXPECT_EQ(NextPoll(kTokyo, {.failures = 1, .retryAfter = seconds(301)}, At(12, 3), kJitter), At(12, 13));
}

TEST(PollSchedule, AsksNotAgainWhileAnAnswerIsFresh)
{
    EXPECT_EQ(DelayAfter(kTokyo, {.freshFor = seconds(300)}), minutes(5));
    EXPECT_EQ(DelayAfter(kTokyo, {.freshFor = seconds(600)}), minutes(10));
    EXPECT_EQ(DelayAfter(kTokyo, {.freshFor = seconds(86400)}), hours(1));
    EXPECT_EQ(NextPoll(kTokyo, {.freshFor = seconds(600)}, At(12, 3), kJitter), At(12, 13));
    EXPECT_EQ(DelayAfter(kTokyo, {.failures = 1, .freshFor = seconds(600)}), minutes(5)); // not of an error page
}

TEST(PollSchedule, IsDueNowWhenItHasNeverBeen)
{
    EXPECT_EQ(DuePoll(kTokyo, std::nullopt, std::nullopt, At(12, 1, 2), kJitter), At(12, 1, 2));
}

TEST(PollSchedule, ARestartPollsNoEarlierThanPlanned)
{
    EXPECT_EQ(DuePoll(kTokyo, At(12, 8, 3), At(12, 3, 3), At(12, 4), kJitter), At(12, 8, 3));
    EXPECT_EQ(DuePoll(kTokyo, At(12, 8, 3), At(12, 3, 3), At(15, 0), kJitter), At(12, 8, 3)); // long over: due
}

TEST(PollSchedule, ARestartWithoutAPlanKeepsTheInterval)
{
    EXPECT_EQ(DuePoll(kTokyo, std::nullopt, At(12, 3), At(12, 4), kJitter), At(12, 8));
    EXPECT_EQ(DuePoll(kTokyo, std::nullopt, At(13, 3), At(12, 4), kJitter), At(12, 4)); // the clock was set back
}

TEST(PollSchedule, APlanBeyondAnyDelayIsOfAClockThatWasSetBack)
{
    const LocalTime now = At(12, 3);
    const LocalTime furthest = now + hours(1) + minutes(5) + seconds(20);
    EXPECT_EQ(DuePoll(kTokyo, furthest, std::nullopt, now, kJitter), furthest);
    EXPECT_EQ(DuePoll(kTokyo, furthest + seconds(1), std::nullopt, now, kJitter), At(12, 8));
    EXPECT_EQ(DuePoll(kTokyo, now + hours(9), At(21, 2), now, kJitter), At(12, 8));
}

TEST(PollSchedule, NoPollIsPlannedBeyondThat)
{
    for (int second = 0; second < 300; ++second) {
        const LocalTime attempted = At(9, 0) + seconds(second);
        const PollResult worst = {.failures = 9, .retryAfter = kLongestBackoff};
        const LocalTime planned = NextPoll(kTokyo, worst, attempted, kJitterLimit);
        EXPECT_EQ(DuePoll(kTokyo, planned, attempted, attempted, kJitter), planned) << second;
    }
}

TEST(PollSchedule, TheNewDaysFileIsDueAtAQuarterToTwo)
{
    EXPECT_FALSE(IsBeforeNewDay(At(23, 59, 59)));
    EXPECT_TRUE(IsBeforeNewDay(At(0, 0)));
    EXPECT_TRUE(IsBeforeNewDay(At(1, 44, 59)));
    EXPECT_FALSE(IsBeforeNewDay(At(1, 45)));
}

} // namespace
} // namespace reportd
