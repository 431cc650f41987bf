#include "platform/Clock.h"

#include "platform/contract/ContractTest.h"
#include "platform/LastError.h"
#include "testing/Calendar.h"

#include <cstring>
#include <limits>

using namespace platform;
using testing_support::Calendar;

namespace contract {
namespace {

class ClockContract : public ContractTest {};

constexpr std::int64_t kUnitsPerSecond = 10000000;
constexpr std::int64_t kEpochUnits = 116444736000000000; // 1970-01-01 on the FILETIME scale

bool Equal(const SYSTEMTIME& left, const SYSTEMTIME& right) { return std::memcmp(&left, &right, sizeof(left)) == 0; }

using platform::CountOf;

std::uint64_t CountOf(const SYSTEMTIME& calendar)
{
    FILETIME time = {};
    EXPECT_TRUE(CalendarToFileTime(&calendar, &time));
    return CountOf(time);
}

// The same calendar time with its day of week.
SYSTEMTIME WithDayOfWeek(const SYSTEMTIME& calendar)
{
    const FILETIME time = FileTimeOf(CountOf(calendar));
    SYSTEMTIME result = {};
    EXPECT_TRUE(FileTimeToCalendar(&time, &result));
    return result;
}

SYSTEMTIME LocalOf(std::int64_t time)
{
    SYSTEMTIME local = {};
    EXPECT_TRUE(TimeToLocalCalendar(time, &local));
    return local;
}

// Whether the local clock shows the same at this time as an hour earlier or later, as it does when daylight saving
// ends.
bool IsAmbiguous(std::int64_t time)
{
    return Equal(LocalOf(time), LocalOf(time - 3600)) || Equal(LocalOf(time), LocalOf(time + 3600));
}

// Expects a time, read from the local clock, to lie between two readings of the other one. The clocks may have
// different granularity.
void ExpectBetween(std::int64_t time, std::int64_t before, std::int64_t after)
{
    const std::int64_t slack = IsAmbiguous(before) ? 3601 : 1;
    EXPECT_GE(time, before - slack);
    EXPECT_LE(time, after + slack);
}

TEST_F(ClockContract, LocalClockShowsTheTimeInLocalCalendar)
{
    const std::int64_t before = ReadTime();
    SYSTEMTIME now = {};
    ReadLocalClock(&now);
    const std::int64_t after = ReadTime();
    ExpectBetween(LocalCalendarToTime(now), before, after);
}

TEST_F(ClockContract, LocalClockHasItsDayOfWeek)
{
    SYSTEMTIME now = {};
    ReadLocalClock(&now);
    EXPECT_TRUE(Equal(now, WithDayOfWeek(now)));
}

TEST_F(ClockContract, LocalClockHasMillisecondResolution)
{
    bool seen = false;
    for (int i = 0; i < 100 && !seen; ++i) {
        SYSTEMTIME now = {};
        ReadLocalClock(&now);
        seen = now.wMilliseconds % 100 != 0;
        LetPass(3);
    }
    EXPECT_TRUE(seen);
}

TEST_F(ClockContract, ClocksGoOnWhileTimePasses)
{
    const std::int64_t startMs = ClockMs();
    const std::int64_t start = ReadTime();
    LetPass(1100);
    EXPECT_GE(ClockMs() - startMs, 1100 - kEarlyMs);
    EXPECT_GE(ReadTime() - start, 1);
}

TEST_F(ClockContract, CalendarToFileTimeCountsFrom1601)
{
    EXPECT_EQ(CountOf(Calendar(1601, 1, 1)), 0U);
    EXPECT_EQ(CountOf(Calendar(1601, 1, 1, 0, 0, 0, 1)), 10000U);
    EXPECT_EQ(CountOf(Calendar(1970, 1, 1)), 116444736000000000U);
    EXPECT_EQ(CountOf(Calendar(2012, 7, 2, 13, 30, 15, 123)), 129857094151230000U);
    EXPECT_EQ(CountOf(Calendar(30827, 12, 31, 23, 59, 59, 999)), 9223149887999990000U);
}

TEST_F(ClockContract, CalendarToFileTimeKnowsLeapYears)
{
    EXPECT_EQ(CountOf(Calendar(2000, 3, 1)) - CountOf(Calendar(2000, 2, 29)), 86400U * kUnitsPerSecond);
    EXPECT_EQ(CountOf(Calendar(2012, 3, 1)) - CountOf(Calendar(2012, 2, 29)), 86400U * kUnitsPerSecond);
    EXPECT_EQ(CountOf(Calendar(1900, 3, 1)) - CountOf(Calendar(1900, 2, 28)), 86400U * kUnitsPerSecond);
}

TEST_F(ClockContract, CalendarToFileTimeDoesNotLookAtTheDayOfWeek)
{
    SYSTEMTIME time = Calendar(2012, 7, 2);
    const std::uint64_t count = CountOf(time);
    for (const int dayOfWeek : {1, 6, 7, 65535}) {
        time.wDayOfWeek = static_cast<WORD>(dayOfWeek);
        EXPECT_EQ(CountOf(time), count) << dayOfWeek;
    }
}

TEST_F(ClockContract, CalendarToFileTimeRefusesWhatIsNoCalendarTime)
{
    const SYSTEMTIME invalid[] = {
        {},
        Calendar(1600, 12, 31),
        Calendar(30828, 1, 1),
        Calendar(65535, 1, 1),
        Calendar(2012, 0, 1),
        Calendar(2012, 13, 1),
        Calendar(2012, 1, 0),
        Calendar(2012, 1, 32),
        Calendar(2012, 4, 31),
        Calendar(2012, 2, 30),
        Calendar(2011, 2, 29),
        Calendar(1900, 2, 29),
        Calendar(2100, 2, 29),
        Calendar(2012, 7, 2, 24),
        Calendar(2012, 7, 2, 0, 60),
        Calendar(2012, 7, 2, 0, 0, 60),
        Calendar(2012, 7, 2, 0, 0, 0, 1000),
    };
    for (const SYSTEMTIME& time : invalid) {
        SCOPED_TRACE(testing::Message() << time.wYear << "-" << time.wMonth << "-" << time.wDay << " " << time.wHour
                                        << ":" << time.wMinute << ":" << time.wSecond << "." << time.wMilliseconds);
        FILETIME untouched = {1, 2};
        EXPECT_TRUE(FailsWith(ERROR_INVALID_PARAMETER, [&] { return CalendarToFileTime(&time, &untouched); }));
        EXPECT_EQ(untouched.dwLowDateTime, 1U);
        EXPECT_EQ(untouched.dwHighDateTime, 2U);
    }
}

TEST_F(ClockContract, FileTimeToCalendarIsTheInverse)
{
    for (const SYSTEMTIME& time :
         {Calendar(1601, 1, 1), Calendar(1601, 12, 31, 23, 59, 59, 999), Calendar(1900, 2, 28, 1, 2, 3, 4),
          Calendar(1970, 1, 1), Calendar(2000, 2, 29, 12), Calendar(2012, 7, 2, 13, 30, 15, 123),
          Calendar(2100, 12, 31), Calendar(30827, 12, 31, 23, 59, 59, 999)}) {
        SYSTEMTIME back = WithDayOfWeek(time);
        back.wDayOfWeek = 0;
        EXPECT_TRUE(Equal(back, time)) << time.wYear;
    }
}

TEST_F(ClockContract, FileTimeToCalendarFillsInTheDayOfWeek)
{
    EXPECT_EQ(WithDayOfWeek(Calendar(1601, 1, 1)).wDayOfWeek, 1);
    EXPECT_EQ(WithDayOfWeek(Calendar(2012, 7, 1)).wDayOfWeek, 0);
    EXPECT_EQ(WithDayOfWeek(Calendar(2012, 7, 2)).wDayOfWeek, 1);
    EXPECT_EQ(WithDayOfWeek(Calendar(2012, 7, 7)).wDayOfWeek, 6);
}

TEST_F(ClockContract, FileTimeToCalendarDropsWhatIsBelowAMillisecond)
{
    const FILETIME time = FileTimeOf(CountOf(Calendar(2012, 7, 2, 0, 0, 0, 5)) + 9999);
    SYSTEMTIME calendar = {};
    ASSERT_TRUE(FileTimeToCalendar(&time, &calendar));
    EXPECT_EQ(calendar.wMilliseconds, 5);
}

TEST_F(ClockContract, FileTimeToCalendarTakesTheLargestCount)
{
    const FILETIME largest = FileTimeOf(0x7FFFFFFFFFFFFFFF);
    SYSTEMTIME calendar = {};
    ASSERT_TRUE(FileTimeToCalendar(&largest, &calendar));
    SYSTEMTIME expected = Calendar(30828, 9, 14, 2, 48, 5, 477);
    expected.wDayOfWeek = 4;
    EXPECT_TRUE(Equal(calendar, expected));
}

TEST_F(ClockContract, FileTimeToCalendarRefusesALargerCount)
{
    for (const std::uint64_t count : {0x8000000000000000U, 0xFFFFFFFFFFFFFFFFU}) {
        const FILETIME time = FileTimeOf(count);
        SYSTEMTIME untouched = Calendar(1, 2, 3, 4, 5, 6, 7);
        EXPECT_TRUE(FailsWith(ERROR_INVALID_PARAMETER, [&] { return FileTimeToCalendar(&time, &untouched); }));
        EXPECT_TRUE(Equal(untouched, Calendar(1, 2, 3, 4, 5, 6, 7)));
    }
}

TEST_F(ClockContract, LocalToUtcFileTimeOfNowIsTheTime)
{
    const std::int64_t before = ReadTime();
    SYSTEMTIME now = {};
    ReadLocalClock(&now);
    const std::int64_t after = ReadTime();
    const FILETIME local = FileTimeOf(CountOf(now));
    FILETIME utc = {};
    ASSERT_TRUE(LocalToUtcFileTime(&local, &utc));
    const std::int64_t time = (static_cast<std::int64_t>(CountOf(utc)) - kEpochUnits) / kUnitsPerSecond;
    ExpectBetween(time, before, after);
}

TEST_F(ClockContract, TimeToLocalCalendarFillsInDayOfWeekAndNoMilliseconds)
{
    for (const std::int64_t time : {std::int64_t{0}, std::int64_t{1341234000}, ReadTime()}) {
        const SYSTEMTIME local = LocalOf(time);
        EXPECT_EQ(local.wMilliseconds, 0);
        EXPECT_TRUE(Equal(local, WithDayOfWeek(local))) << time;
    }
}

TEST_F(ClockContract, TimeToLocalCalendarIsWithinADayOfUtc)
{
    // 2012-07-02 13:00:00 UTC; zones reach from 12 hours behind to 14 ahead.
    const auto local = static_cast<std::int64_t>(CountOf(LocalOf(1341234000)));
    const auto utc = static_cast<std::int64_t>(CountOf(Calendar(2012, 7, 2, 13)));
    EXPECT_GE(local - utc, -12 * 3600 * kUnitsPerSecond);
    EXPECT_LE(local - utc, 14 * 3600 * kUnitsPerSecond);
    EXPECT_EQ((local - utc) % (900 * kUnitsPerSecond), 0) << "zones are quarters of an hour apart";
}

TEST_F(ClockContract, TimeToLocalCalendarRefusesNegativeTimesAndThoseAfterTheYear3000)
{
    for (const std::int64_t time : {std::int64_t{-1}, std::int64_t{-86400}, std::numeric_limits<std::int64_t>::min(),
                                    std::int64_t{32535388800}, // 3001-01-03
                                    std::int64_t{253402300800}, std::numeric_limits<std::int64_t>::max()}) {
        SYSTEMTIME local = Calendar(1, 2, 3, 4, 5, 6, 7);
        EXPECT_FALSE(TimeToLocalCalendar(time, &local)) << time;
        EXPECT_TRUE(Equal(local, {})) << time;
    }
}

TEST_F(ClockContract, LocalCalendarToTimeIsTheInverse)
{
    // 1970, 2000-02-29, winter and summer of 2012, 2038, 2100-03-01, the end of 3000.
    for (const std::int64_t time :
         {0LL, 951825600LL, 1326500000LL, 1341234000LL, 2147483648LL, 4107585600LL, 32535000000LL}) {
        EXPECT_EQ(LocalCalendarToTime(LocalOf(time)), time);
    }
}

TEST_F(ClockContract, LocalCalendarToTimeLooksNeitherAtMillisecondsNorAtDayOfWeek)
{
    SYSTEMTIME local = Calendar(2012, 7, 2, 13);
    const std::int64_t time = LocalCalendarToTime(local);
    local.wMilliseconds = 999;
    local.wDayOfWeek = 5;
    EXPECT_EQ(LocalCalendarToTime(local), time);
}

TEST_F(ClockContract, LocalCalendarToTimeRunsOnIntoTheNextMonth)
{
    EXPECT_EQ(LocalCalendarToTime(Calendar(2012, 2, 31, 12)), LocalCalendarToTime(Calendar(2012, 3, 2, 12)));
    EXPECT_EQ(LocalCalendarToTime(Calendar(2011, 2, 29, 12)), LocalCalendarToTime(Calendar(2011, 3, 1, 12)));
    EXPECT_EQ(LocalCalendarToTime(Calendar(2012, 4, 31, 12)), LocalCalendarToTime(Calendar(2012, 5, 1, 12)));
    EXPECT_EQ(LocalCalendarToTime(Calendar(2012, 11, 31, 12)), LocalCalendarToTime(Calendar(2012, 12, 1, 12)));
}

TEST_F(ClockContract, LocalCalendarToTimeRefusesWhatLiesBefore1970OrAfter3000)
{
    // One second before the earliest time, in whatever zone.
    const std::uint64_t earliest = CountOf(LocalOf(0));
    const FILETIME before = FileTimeOf(earliest - kUnitsPerSecond);
    SYSTEMTIME justBefore = {};
    ASSERT_TRUE(FileTimeToCalendar(&before, &justBefore));
    EXPECT_EQ(LocalCalendarToTime(justBefore), -1);

    EXPECT_EQ(LocalCalendarToTime(Calendar(1969, 12, 30)), -1);
    EXPECT_EQ(LocalCalendarToTime(Calendar(1950, 1, 1)), -1);
    EXPECT_EQ(LocalCalendarToTime(Calendar(1601, 1, 1)), -1);
    EXPECT_EQ(LocalCalendarToTime(Calendar(3001, 1, 3)), -1);
    EXPECT_EQ(LocalCalendarToTime(Calendar(9999, 12, 31)), -1);
}

} // namespace
} // namespace contract
