#include "engine/Schedule.h"

#include "testing/CalendarText.h"

#include <gmock/gmock.h>

namespace {

using testing_support::CalendarText;

constexpr LONGLONG kSecond = 10'000'000; // of the FILETIME scale
constexpr LONGLONG kMinute = 60 * kSecond;

TEST(Schedule, BaseTimeIsAheadBeforeItsHourOnly)
{
    EXPECT_TRUE(IsBeforeBaseTime(0, 9));
    EXPECT_TRUE(IsBeforeBaseTime(8, 9));
    EXPECT_FALSE(IsBeforeBaseTime(9, 9));
    EXPECT_FALSE(IsBeforeBaseTime(23, 9));
    EXPECT_FALSE(IsBeforeBaseTime(0, 0));
    EXPECT_TRUE(IsBeforeBaseTime(22, 23));
    EXPECT_FALSE(IsBeforeBaseTime(23, 23));
}

TEST(Schedule, AnHourOutsideTheDayIsComparedAsItIs)
{
    EXPECT_TRUE(IsBeforeBaseTime(23, 24));
    EXPECT_TRUE(IsBeforeBaseTime(23, 0x7FFFFFFF));
    EXPECT_FALSE(IsBeforeBaseTime(0, -1));
}

TEST(Schedule, AnUnknownHourIsBeforeEveryHour)
{
    EXPECT_TRUE(IsBeforeBaseTime(-1, 0));
    EXPECT_TRUE(IsBeforeBaseTime(-1, 9));
    EXPECT_FALSE(IsBeforeBaseTime(-1, -1));
}

constexpr SYSTEMTIME kAfternoon{2012, 7, 1, 2, 15, 30, 45, 678};

TEST(Schedule, BaseTimeIsTheFullHourOfTheDay)
{
    for (const WORD hour : {WORD{0}, WORD{9}, WORD{23}}) {
        EXPECT_EQ(CalendarText(BaseTime(kAfternoon, hour)), CalendarText({2012, 7, 0, 2, hour, 0, 0, 0}));
    }
}

TEST(Schedule, BaseTimeOutsideTheDayIsHour24)
{
    for (const LONG fixedClock : {24, 0x10000 + 9, 0x7FFFFFFF, -1, -0x7FFFFFFF - 1}) {
        EXPECT_EQ(CalendarText(BaseTime(kAfternoon, fixedClock)), "2012-07-02(0) 24:00:00.000") << fixedClock;
    }
}

TEST(Schedule, BaseTimeOfAnUnknownDayHasNoDay)
{
    EXPECT_EQ(CalendarText(BaseTime({}, 9)), "0000-00-00(0) 09:00:00.000");
}

TEST(Schedule, DelayedTimeCountsMinutes)
{
    constexpr std::int64_t kNineOClock = 1341187200; // 2012-07-02 09:00:00 UTC+9
    EXPECT_EQ(DelayedTime(kNineOClock, 0), kNineOClock);
    EXPECT_EQ(DelayedTime(kNineOClock, 29), kNineOClock + 29 * 60);
    EXPECT_EQ(DelayedTime(kNineOClock, -5), kNineOClock - 5 * 60);
    // Further than 32 bits of seconds go.
    EXPECT_EQ(DelayedTime(kNineOClock, 0x7FFFFFFF), kNineOClock + std::int64_t{0x7FFFFFFF} * 60);
}

TEST(Schedule, IntervalDueTimeIsRelative)
{
    EXPECT_EQ(IntervalDueTime(30, 0).QuadPart, -30 * kMinute);
    EXPECT_EQ(IntervalDueTime(30, -15).QuadPart, -15 * kMinute);
    EXPECT_EQ(IntervalDueTime(30, 14).QuadPart, -44 * kMinute);
}

TEST(Schedule, AnIntervalOfNothingOrLessIsDueAtOnce)
{
    EXPECT_EQ(IntervalDueTime(0, 0).QuadPart, 0);
    EXPECT_EQ(IntervalDueTime(10, -15).QuadPart, 5 * kMinute); // of the year 1601
}

} // namespace
