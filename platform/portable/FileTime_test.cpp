#include "platform/portable/FileTime.h"

#include "platform/Clock.h"
#include "testing/Calendar.h"

#include <gmock/gmock.h>

namespace platform::portable {
namespace {

using testing_support::Calendar;

std::uint64_t Count(const SYSTEMTIME& calendar)
{
    std::uint64_t count = 0;
    EXPECT_TRUE(CalendarToCount(calendar, &count));
    return count;
}

bool Accepts(const SYSTEMTIME& calendar)
{
    std::uint64_t count = 7;
    const bool accepted = CalendarToCount(calendar, &count) != FALSE;
    EXPECT_TRUE(accepted || count == 7) << "result touched";
    return accepted;
}

TEST(FileTime, CountsSince1601)
{
    EXPECT_EQ(Count(Calendar(1601, 1, 1)), 0U);
    EXPECT_EQ(Count(Calendar(1601, 1, 2, 0, 0, 0, 1)), 864'000'010'000U);
    EXPECT_EQ(Count(Calendar(1970, 1, 1)), 116'444'736'000'000'000U);
    EXPECT_EQ(Count(Calendar(2012, 7, 2, 13, 30)), 129'857'094'000'000'000U);
    EXPECT_EQ(Count(Calendar(30827, 12, 31, 23, 59, 59, 999)), 9'223'149'887'999'990'000U);
}

TEST(FileTime, RefusesFieldsOutOfRange)
{
    EXPECT_FALSE(Accepts(Calendar(1600, 12, 31)));
    EXPECT_FALSE(Accepts(Calendar(30828, 1, 1)));
    EXPECT_FALSE(Accepts(Calendar(0, 0, 0)));
    EXPECT_FALSE(Accepts(Calendar(2012, 0, 1)));
    EXPECT_FALSE(Accepts(Calendar(2012, 13, 1)));
    EXPECT_FALSE(Accepts(Calendar(2012, 7, 0)));
    EXPECT_FALSE(Accepts(Calendar(2012, 7, 32)));
    EXPECT_FALSE(Accepts(Calendar(2012, 6, 31)));
    EXPECT_FALSE(Accepts(Calendar(2012, 7, 2, 24)));
    EXPECT_FALSE(Accepts(Calendar(2012, 7, 2, 0, 60)));
    EXPECT_FALSE(Accepts(Calendar(2012, 7, 2, 0, 0, 60)));
    EXPECT_FALSE(Accepts(Calendar(2012, 7, 2, 0, 0, 0, 1000)));
}

TEST(FileTime, KnowsLeapYears)
{
    EXPECT_TRUE(Accepts(Calendar(2012, 2, 29)));
    EXPECT_TRUE(Accepts(Calendar(2000, 2, 29)));
    EXPECT_FALSE(Accepts(Calendar(2011, 2, 29)));
    EXPECT_FALSE(Accepts(Calendar(1900, 2, 29)));
}

TEST(FileTime, DayOfWeekIsNotLookedAt)
{
    SYSTEMTIME calendar = Calendar(2012, 7, 2);
    calendar.wDayOfWeek = 99;
    EXPECT_EQ(Count(calendar), Count(Calendar(2012, 7, 2)));
}

TEST(FileTime, CalendarComesBackWithDayOfWeek)
{
    SYSTEMTIME calendar{};
    ASSERT_TRUE(CountToCalendar(129'857'094'001'230'000U, &calendar));
    EXPECT_EQ(calendar.wYear, 2012);
    EXPECT_EQ(calendar.wMonth, 7);
    EXPECT_EQ(calendar.wDayOfWeek, 1);
    EXPECT_EQ(calendar.wDay, 2);
    EXPECT_EQ(calendar.wHour, 13);
    EXPECT_EQ(calendar.wMinute, 30);
    EXPECT_EQ(calendar.wSecond, 0);
    EXPECT_EQ(calendar.wMilliseconds, 123);
}

TEST(FileTime, EveryDayOfTwoErasComesBack)
{
    WORD expectedDayOfWeek = 1;
    for (std::uint64_t day = 0; day < 2 * 146'097; ++day) {
        const std::uint64_t count = day * 864'000'000'000U;
        SYSTEMTIME calendar{};
        ASSERT_TRUE(CountToCalendar(count, &calendar));
        ASSERT_EQ(calendar.wDayOfWeek, expectedDayOfWeek);
        ASSERT_EQ(Count(calendar), count);
        expectedDayOfWeek = static_cast<WORD>((expectedDayOfWeek + 1) % 7);
    }
}

TEST(FileTime, RefusesCountsWithTheHighestBit)
{
    SYSTEMTIME calendar = Calendar(1, 2, 3);
    EXPECT_FALSE(CountToCalendar(0x8000000000000000U, &calendar));
    EXPECT_EQ(calendar.wYear, 1);
    EXPECT_TRUE(CountToCalendar(0x7FFFFFFFFFFFFFFFU, &calendar));
    EXPECT_EQ(calendar.wYear, 30828);
}

TEST(FileTime, HalvesGoTogetherAndApart)
{
    const FILETIME fileTime = FileTimeOf(0x0123456789ABCDEFU);
    EXPECT_EQ(fileTime.dwLowDateTime, 0x89ABCDEFU);
    EXPECT_EQ(fileTime.dwHighDateTime, 0x01234567U);
    EXPECT_EQ(CountOf(fileTime), 0x0123456789ABCDEFU);
}

} // namespace
} // namespace platform::portable
