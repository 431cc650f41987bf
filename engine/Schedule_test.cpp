#include "engine/Schedule.h"

#include "data/CalendarTime.h"
#include "platform/sim/Machine.h"

#include <gmock/gmock.h>

namespace {

using platform::sim::Call;

constexpr LONGLONG kSecond = 10'000'000; // of the FILETIME scale
constexpr LONGLONG kMinute = 60 * kSecond;

TEST(Schedule, BaseTimeIsStillToComeBeforeItsHourOnly)
{
    EXPECT_TRUE(IsBeforeBaseTime(0, 9));
    EXPECT_TRUE(IsBeforeBaseTime(8, 9));
    EXPECT_FALSE(IsBeforeBaseTime(9, 9));
    EXPECT_FALSE(IsBeforeBaseTime(23, 9));
    EXPECT_FALSE(IsBeforeBaseTime(0, 0));
    EXPECT_TRUE(IsBeforeBaseTime(22, 23));
    EXPECT_FALSE(IsBeforeBaseTime(23, 23));
}

TEST(Schedule, AnHourBeyondTheDayIsAlwaysStillToComeAndANegativeOneNever)
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

// Local time is UTC+9.
class ScheduleTime : public testing::Test {
protected:
    ScheduleTime() : m_day(CalendarFromTime(TimeFromCalendar({2012, 7, 0, 2, 15, 30, 45, 0}))) {}

    // The code of the exception that BaseTime throws; 0 for none.
    static HRESULT CodeOf(const SYSTEMTIME& day, LONG fixedClock)
    {
        try {
            BaseTime(day, fixedClock);
        } catch (const COleException& exception) {
            return exception.Code();
        }
        return 0;
    }

    platform::sim::CMachine m_machine;
    const SYSTEMTIME m_day;
};

TEST_F(ScheduleTime, BaseTimeIsTheFullHourOfTheDay)
{
    constexpr std::int64_t kMidnight = 1341154800; // 2012-07-02 00:00:00 local time
    EXPECT_EQ(BaseTime(m_day, 0), kMidnight);
    EXPECT_EQ(BaseTime(m_day, 9), kMidnight + 9 * 3600);
    EXPECT_EQ(BaseTime(m_day, 23), kMidnight + 23 * 3600);
}

TEST_F(ScheduleTime, AnHourThatTheDayDoesNotHaveIsAnInvalidDate)
{
    for (const LONG hour : {24, 0x10000 + 9, 0x7FFFFFFF, -1}) {
        EXPECT_EQ(CodeOf(m_day, hour), kInvalidDatePart) << hour;
    }
}

TEST_F(ScheduleTime, AnUnknownPartOfTheDayIsAnInvalidDate)
{
    for (WORD SYSTEMTIME::*const part : {&SYSTEMTIME::wYear, &SYSTEMTIME::wMonth, &SYSTEMTIME::wDay}) {
        SYSTEMTIME day = m_day;
        day.*part = 0;
        EXPECT_EQ(CodeOf(day, 9), kInvalidDatePart);
    }
}

TEST_F(ScheduleTime, ADayThatCannotBeConvertedIsAFailedConversion)
{
    m_machine.FailCall(Call::kLocalCalendarToTime, 1, 87);
    EXPECT_EQ(CodeOf(m_day, 9), kDateConversionFailed);
}

TEST_F(ScheduleTime, BaseDueTimeIsAnAbsoluteTimeInUtc)
{
    constexpr LONGLONG kNineOClock = 129856608000000000; // 2012-07-02 00:00:00 UTC
    EXPECT_EQ(BaseDueTime(BaseTime(m_day, 9), 0).QuadPart, kNineOClock);
    EXPECT_EQ(BaseDueTime(BaseTime(m_day, 9), 29).QuadPart, kNineOClock + 29 * kMinute);
    EXPECT_EQ(BaseDueTime(BaseTime(m_day, 9), -5).QuadPart, kNineOClock - 5 * kMinute);
    // Beyond the turn of the day, and further than 32 bits of seconds go.
    EXPECT_EQ(BaseDueTime(BaseTime(m_day, 23), 120).QuadPart, kNineOClock + 16 * 60 * kMinute);
    EXPECT_EQ(BaseDueTime(BaseTime(m_day, 9), 100'000'000).QuadPart, kNineOClock + 100'000'000 * kMinute);
}

TEST_F(ScheduleTime, ABaseTimeThatCannotBeConvertedIsDueAtOnce)
{
    for (const Call call : {Call::kTimeToLocalCalendar, Call::kCalendarToFileTime, Call::kLocalToUtcFileTime}) {
        const std::int64_t baseTime = BaseTime(m_day, 9);
        m_machine.FailCall(call, 1, 87);
        EXPECT_EQ(BaseDueTime(baseTime, 10).QuadPart, 0);
    }
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
