#include "data/CalendarTime.h"

#include "testing/CalendarText.h"
#include "testing/MachineTest.h"

namespace {

using platform::sim::Call;
using testing_support::CalendarText;

constexpr SYSTEMTIME kNoon{2012, 7, 1, 2, 13, 0, 0, 0}; // Monday
constexpr std::int64_t kNoonTime = 1341201600;          // 2012-07-02 04:00:00 UTC

class CalendarTime : public testing_support::CMachineTest {};

// The status that TimeFromCalendar throws; S_OK when it throws nothing.
HRESULT StatusOf(const SYSTEMTIME& local)
{
    try {
        TimeFromCalendar(local);
        return S_OK;
    } catch (const COleException& exception) {
        return exception.Code();
    }
}

TEST_F(CalendarTime, StatusCodesAreThoseOfTheOleLibrary)
{
    EXPECT_EQ(static_cast<DWORD>(kInvalidDatePart), 0x80004005U);
    EXPECT_EQ(static_cast<DWORD>(kDateConversionFailed), 0x80070057U);
}

TEST_F(CalendarTime, ConvertsLocalTimeToTimeValues) { EXPECT_EQ(TimeFromCalendar(kNoon), kNoonTime); }

TEST_F(CalendarTime, MillisecondsAndDayOfWeekAreNotLookedAt)
{
    EXPECT_EQ(TimeFromCalendar({2012, 7, 6, 2, 13, 0, 0, 999}), kNoonTime);
    EXPECT_EQ(TimeFromCalendar({2012, 7, 65535, 2, 13, 0, 0, 65535}), kNoonTime);
}

TEST_F(CalendarTime, FollowsTheZoneOfTheMachine)
{
    m_machine.SetUtcOffset(0);
    EXPECT_EQ(TimeFromCalendar(kNoon), kNoonTime + 9 * 3600);
}

TEST_F(CalendarTime, ADayBeyondItsMonthRunsOnIntoTheNext)
{
    EXPECT_EQ(TimeFromCalendar({2012, 6, 0, 31, 0, 0, 0, 0}), TimeFromCalendar({2012, 7, 0, 1, 0, 0, 0, 0}));
}

TEST_F(CalendarTime, EveryPartIsCheckedAtItsLimits)
{
    const SYSTEMTIME good{2012, 1, 0, 1, 0, 0, 0, 0};
    ASSERT_EQ(StatusOf(good), S_OK);
    struct Limit {
        WORD SYSTEMTIME::*part;
        WORD last;  // still good
        WORD first; // no longer good
    };
    for (const Limit& limit :
         {Limit{&SYSTEMTIME::wMonth, 12, 13}, Limit{&SYSTEMTIME::wMonth, 1, 0}, Limit{&SYSTEMTIME::wDay, 31, 32},
          Limit{&SYSTEMTIME::wDay, 1, 0}, Limit{&SYSTEMTIME::wHour, 23, 24}, Limit{&SYSTEMTIME::wMinute, 59, 60},
          Limit{&SYSTEMTIME::wSecond, 59, 60}, Limit{&SYSTEMTIME::wSecond, 59, 65535}}) {
        SYSTEMTIME time = good;
        time.*limit.part = limit.last;
        EXPECT_EQ(StatusOf(time), S_OK) << CalendarText(time);
        time.*limit.part = limit.first;
        EXPECT_EQ(StatusOf(time), kInvalidDatePart) << CalendarText(time);
    }
}

TEST_F(CalendarTime, AYearBefore1900IsAnInvalidPart)
{
    EXPECT_EQ(StatusOf({1899, 12, 0, 31, 23, 59, 59, 0}), kInvalidDatePart);
    EXPECT_EQ(StatusOf({0, 1, 0, 1, 0, 0, 0, 0}), kInvalidDatePart);
}

TEST_F(CalendarTime, ATimeBefore1970InUtcFailsToConvert)
{
    EXPECT_EQ(TimeFromCalendar({1970, 1, 0, 1, 9, 0, 0, 0}), 0);
    EXPECT_EQ(StatusOf({1970, 1, 0, 1, 8, 59, 59, 0}), kDateConversionFailed);
    EXPECT_EQ(StatusOf({1950, 1, 0, 1, 0, 0, 0, 0}), kDateConversionFailed);
    EXPECT_EQ(StatusOf({1900, 1, 0, 1, 0, 0, 0, 0}), kDateConversionFailed);
}

TEST_F(CalendarTime, ATimeAfterTheYear3000FailsToConvert)
{
    EXPECT_EQ(StatusOf({3000, 12, 0, 31, 0, 0, 0, 0}), S_OK);
    EXPECT_EQ(StatusOf({3001, 2, 0, 1, 0, 0, 0, 0}), kDateConversionFailed);
    EXPECT_EQ(StatusOf({65535, 1, 0, 1, 0, 0, 0, 0}), kDateConversionFailed);
}

TEST_F(CalendarTime, AFailingConversionOfTheSystemThrows)
{
    m_machine.FailCall(Call::kLocalCalendarToTime, 1, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(StatusOf(kNoon), kDateConversionFailed);
    EXPECT_EQ(StatusOf(kNoon), S_OK);
}

TEST_F(CalendarTime, ConvertsTimeValuesToLocalTimeWithDayOfWeek)
{
    EXPECT_EQ(CalendarText(CalendarFromTime(kNoonTime)), CalendarText(kNoon));
    EXPECT_EQ(CalendarText(CalendarFromTime(0)), "1970-01-01(4) 09:00:00.000");
}

TEST_F(CalendarTime, ATimeValueThatCannotBeConvertedIsAllZero)
{
    EXPECT_EQ(CalendarText(CalendarFromTime(-1)), "0000-00-00(0) 00:00:00.000");
    EXPECT_EQ(CalendarText(CalendarFromTime(std::int64_t{1} << 40)), "0000-00-00(0) 00:00:00.000");
    m_machine.FailCall(Call::kTimeToLocalCalendar, 1, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CalendarText(CalendarFromTime(kNoonTime)), "0000-00-00(0) 00:00:00.000");
}

TEST_F(CalendarTime, CountsTimeValuesInUtc)
{
    constexpr ULONGLONG kNoonCount = 129856752000000000; // 2012-07-02 04:00:00 UTC
    constexpr ULONGLONG kSecond = 10'000'000;
    EXPECT_EQ(CountFromTime(kNoonTime), kNoonCount);
    // Over the turn of the day, and further than 32 bits of seconds go.
    EXPECT_EQ(CountFromTime(kNoonTime + 86'400), kNoonCount + 86'400 * kSecond);
    EXPECT_EQ(CountFromTime(kNoonTime + 6'000'000'000), kNoonCount + 6'000'000'000 * kSecond);
    m_machine.SetUtcOffset(0);
    EXPECT_EQ(CountFromTime(kNoonTime), kNoonCount);
}

TEST_F(CalendarTime, ATimeValueThatCannotBeCountedIsZero)
{
    EXPECT_EQ(CountFromTime(-1), 0U);
    for (const Call call : {Call::kTimeToLocalCalendar, Call::kCalendarToFileTime, Call::kLocalToUtcFileTime}) {
        m_machine.FailCall(call, 1, ERROR_INVALID_PARAMETER);
        EXPECT_EQ(CountFromTime(kNoonTime), 0U);
    }
}

} // namespace
