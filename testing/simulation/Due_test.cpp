#include "testing/simulation/Due.h"

#include <gmock/gmock.h>

namespace simulation {
namespace {

TEST(Due, RandomMinutesAreTruncatedTowardZero)
{
    using Bounds = std::pair<std::int64_t, std::int64_t>;
    const auto between = [](std::int64_t minimum, std::int64_t maximum) {
        const Minutes minutes = RandomMinutesBetween(minimum, maximum);
        return Bounds(minutes.low, minutes.high);
    };
    EXPECT_EQ(between(-15, 15), Bounds(-15, 14));
    EXPECT_EQ(between(15, -15), Bounds(-15, 14));
    EXPECT_EQ(between(0, 30), Bounds(0, 29));
    EXPECT_EQ(between(30, 30), Bounds(30, 30));
    EXPECT_EQ(between(-30, -10), Bounds(-30, -10));
    EXPECT_EQ(between(-30, 0), Bounds(-30, 0));
}

TEST(Due, IntervalCountsWholeMinutesFromItsBegin)
{
    const CDue due = CDue::AfterInterval(500, 30, {-15, 14});
    EXPECT_FALSE(due.MayFallDueAt(500 + 15 * kMinuteMs - 1, 0, false));
    EXPECT_TRUE(due.MayFallDueAt(500 + 15 * kMinuteMs, 0, false));
    EXPECT_FALSE(due.MayFallDueAt(15 * kMinuteMs, 0, false));
    EXPECT_TRUE(due.MayFallDueAt(500 + 44 * kMinuteMs, 0, false));
    EXPECT_FALSE(due.MayFallDueAt(500 + 45 * kMinuteMs, 0, false));
    EXPECT_FALSE(due.IsOverdue(499 + 44 * kMinuteMs, 0));
    EXPECT_TRUE(due.IsOverdue(500 + 44 * kMinuteMs, 0));
    EXPECT_TRUE(due.MayFallDueAt(500 + 100 * kMinuteMs, 0, true));
}

TEST(Due, BaseTimeGoesByTheClock)
{
    const CZone zone(9 * 60);
    // 2012-07-02 08:00 local time.
    const UtcMs now = LocalOf({2012, 7, 0, 2, 8, 0, 0, 0}) - 9 * kHourMs;
    const auto due = CDue::AtBaseTime(zone, now, 9, {0, 29});
    ASSERT_TRUE(due);
    EXPECT_TRUE(due->IsByClock());
    EXPECT_FALSE(due->MayFallDueAt(0, now + kHourMs - 1, false));
    EXPECT_TRUE(due->MayFallDueAt(0, now + kHourMs, false));
    EXPECT_TRUE(due->MayFallDueAt(0, now + kHourMs + 29 * kMinuteMs, false));
    EXPECT_FALSE(due->MayFallDueAt(0, now + kHourMs + 30 * kMinuteMs, false));
    EXPECT_TRUE(due->MayFallDueAt(0, now + 5 * kHourMs, true));
    EXPECT_FALSE(due->IsOverdue(0, now + kHourMs));
    EXPECT_TRUE(due->IsOverdue(0, now + kHourMs + 29 * kMinuteMs));
    EXPECT_FALSE(CDue::AtBaseTime(zone, now, 24, {0, 29}));
}

TEST(LocalTime, CalendarsGoThereAndBack)
{
    const SYSTEMTIME calendar = CalendarOf(1'341'234'000'123);
    EXPECT_EQ(calendar.wYear, 2012);
    EXPECT_EQ(calendar.wMonth, 7);
    EXPECT_EQ(calendar.wDayOfWeek, 1);
    EXPECT_EQ(calendar.wDay, 2);
    EXPECT_EQ(calendar.wHour, 13);
    EXPECT_EQ(calendar.wMilliseconds, 123);
    EXPECT_EQ(LocalOf(calendar), 1'341'234'000'123);
}

TEST(LocalTime, HoursThatComeTwiceOrNeverGoByTheOffsetBefore)
{
    constexpr UtcMs kForth = 100 * kDayMs;
    constexpr UtcMs kBack = 200 * kDayMs;
    CZone zone(60);
    zone.Change(kForth, 120);
    zone.Change(kBack, 60);
    for (const UtcMs utc : {kForth - 1, kForth, kBack - kHourMs - 1, kBack - 1, kBack + kHourMs}) {
        EXPECT_EQ(zone.ToUtc(zone.ToLocal(utc)), utc);
    }
    EXPECT_EQ(zone.ToUtc(zone.ToLocal(kBack)), kBack - kHourMs);
    EXPECT_EQ(zone.ToUtc(kForth + 90 * kMinuteMs), kForth + 30 * kMinuteMs);
}

} // namespace
} // namespace simulation
