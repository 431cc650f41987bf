#include "platform/Clock.h"

#include "platform/contract/linux/ScratchSession.h"
#include "platform/LastError.h"
#include "platform/portable/FileTime.h"
#include "testing/Calendar.h"

#include <cstdlib>
#include <ctime>
#include <gmock/gmock.h>
#include <tuple>

namespace platform {
namespace {

using testing_support::Calendar;

// Zones by rule, so that no zone files are needed: Japan has no daylight saving, the other one the American rule.
constexpr char kJapan[] = "JST-9";
constexpr char kNewYork[] = "EST5EDT,M3.2.0,M11.1.0";

class LinuxClock : public testing::Test {
protected:
    ~LinuxClock() override
    {
        m_session.reset();
        tzset();
    }
    void SetZone(const char* zone)
    {
        m_session->SetVariable("TZ", zone);
        ReadTime(); // notices it
    }

    std::unique_ptr<testing_support::CScratchSession> m_session = std::make_unique<testing_support::CScratchSession>();
};

TEST_F(LinuxClock, AChangeOfZoneIsSeenOnceTheClockIsRead)
{
    SYSTEMTIME local = {};
    SetZone(kJapan);
    ASSERT_TRUE(TimeToLocalCalendar(1341201600, &local)); // 2012-07-02 04:00:00 UTC
    EXPECT_EQ(local.wHour, 13);
    EXPECT_EQ(LocalCalendarToTime(Calendar(2012, 7, 2, 13)), 1341201600);
    SetZone(kNewYork);
    ASSERT_TRUE(TimeToLocalCalendar(1341201600, &local));
    EXPECT_EQ(local.wHour, 0);
    EXPECT_EQ(LocalCalendarToTime(Calendar(2012, 7, 2)), 1341201600);
}

TEST_F(LinuxClock, DaylightSavingIsLeftToTheSystem)
{
    SetZone(kNewYork);
    EXPECT_EQ(LocalCalendarToTime(Calendar(2012, 1, 2, 12)), 1325523600);
    EXPECT_EQ(LocalCalendarToTime(Calendar(2012, 7, 2, 12)), 1341244800);
    // 02:30 does not exist on the day when it begins; the hour is moved on or back, never refused.
    const std::int64_t skipped = LocalCalendarToTime(Calendar(2012, 3, 11, 2, 30));
    EXPECT_THAT(skipped, testing::AnyOf(1331447400, 1331451000));
    // 01:30 comes twice on the day when it ends.
    const std::int64_t repeated = LocalCalendarToTime(Calendar(2012, 11, 4, 1, 30));
    EXPECT_THAT(repeated, testing::AnyOf(1352007000, 1352010600));
}

TEST_F(LinuxClock, EachTimeOfAYearIsWhatTheCLibraryMakesOfIt)
{
    constexpr std::int64_t kYearBegin = 1325376000; // 2012-01-01 00:00:00 UTC
    constexpr std::int64_t kStepSeconds = 1801;
    SetZone(kNewYork);
    for (std::int64_t time = kYearBegin; time < kYearBegin + 366 * 86400; time += kStepSeconds) {
        const std::time_t now = time;
        std::tm expected = {};
        ::localtime_r(&now, &expected);
        SYSTEMTIME local = {};
        ASSERT_TRUE(TimeToLocalCalendar(time, &local));
        ASSERT_EQ(std::tuple(local.wMonth, local.wDay, local.wHour, local.wMinute, local.wSecond, local.wDayOfWeek),
                  std::tuple(expected.tm_mon + 1, expected.tm_mday, expected.tm_hour, expected.tm_min, expected.tm_sec,
                             expected.tm_wday))
            << time;
        const bool comesTwice = local.wMonth == 11 && local.wDay == 4 && local.wHour == 1;
        const std::int64_t error = LocalCalendarToTime(local) - time;
        ASSERT_TRUE(error == 0 || (comesTwice && std::abs(error) == 3600)) << time;
    }
}

TEST_F(LinuxClock, TheEarliestLocalTimeIsTheEpochInUtc)
{
    SetZone(kJapan);
    EXPECT_EQ(LocalCalendarToTime(Calendar(1970, 1, 1, 9)), 0);
    EXPECT_EQ(LocalCalendarToTime(Calendar(1970, 1, 1, 8, 59)), -1);
    SetZone(kNewYork);
    EXPECT_EQ(LocalCalendarToTime(Calendar(1969, 12, 31, 19)), 0);
}

TEST_F(LinuxClock, TheLastTimeIsTheEndOfTheYear3000InUtc)
{
    SYSTEMTIME local = {};
    SetZone(kJapan);
    ASSERT_TRUE(TimeToLocalCalendar(32535215999, &local));
    EXPECT_EQ(local.wYear, 3001);
    EXPECT_EQ(LocalCalendarToTime(local), 32535215999);
    EXPECT_FALSE(TimeToLocalCalendar(32535216000, &local));
    EXPECT_EQ(local.wYear, 0);
    EXPECT_EQ(LocalCalendarToTime(Calendar(3001, 1, 1, 9)), -1);
}

TEST_F(LinuxClock, LocalToUtcAppliesTheDifferenceInForceNow)
{
    SetZone(kJapan);
    FILETIME utc = {};
    for (const SYSTEMTIME& calendar : {Calendar(2012, 1, 2, 12), Calendar(2012, 7, 2, 12)}) {
        FILETIME local = {};
        ASSERT_TRUE(CalendarToFileTime(&calendar, &local));
        ASSERT_TRUE(LocalToUtcFileTime(&local, &utc));
        EXPECT_EQ(CountOf(local) - CountOf(utc), 9 * 3600 * 10'000'000ULL);
    }
}

TEST_F(LinuxClock, LocalToUtcRefusesWhatLeavesTheScale)
{
    FILETIME utc = {1, 2};
    const FILETIME first = {};
    const FILETIME last = FileTimeOf(0xFFFFFFFFFFFFFFFF);
    SetZone(kJapan);
    SetLastErrorCode(0);
    EXPECT_FALSE(LocalToUtcFileTime(&first, &utc));
    EXPECT_EQ(GetLastErrorCode(), ERROR_INVALID_PARAMETER);
    SetZone(kNewYork);
    EXPECT_FALSE(LocalToUtcFileTime(&last, &utc));
    EXPECT_EQ(utc.dwLowDateTime, 1U);
    EXPECT_EQ(utc.dwHighDateTime, 2U);
    EXPECT_TRUE(LocalToUtcFileTime(&first, &utc));
}

} // namespace
} // namespace platform
