#include "engine/Schedule.h"

#include "data/CalendarTime.h"
#include "platform/Clock.h"

namespace {

constexpr LONG kHoursPerDay = 24;
constexpr std::int64_t kSecondsPerMinute = 60;
constexpr LONGLONG kRelativeMinute = -600000000; // a relative due time of one minute, in 100-nanosecond units

} // namespace

bool IsBeforeBaseTime(int hour, LONG fixedClock) { return hour < fixedClock; }

std::int64_t BaseTime(const SYSTEMTIME& day, LONG fixedClock)
{
    // A number that a 16-bit field would cut down to an hour must not become one.
    const bool isHour = fixedClock >= 0 && fixedClock < kHoursPerDay;
    SYSTEMTIME base{};
    base.wYear = day.wYear;
    base.wMonth = day.wMonth;
    base.wDay = day.wDay;
    base.wHour = static_cast<WORD>(isHour ? fixedClock : kHoursPerDay);
    return TimeFromCalendar(base);
}

LARGE_INTEGER BaseDueTime(std::int64_t baseTime, LONG delayMinutes)
{
    const SYSTEMTIME due = CalendarFromTime(baseTime + delayMinutes * kSecondsPerMinute);
    FILETIME local{};
    FILETIME utc{};
    LARGE_INTEGER dueTime{};
    if (platform::CalendarToFileTime(&due, &local) && platform::LocalToUtcFileTime(&local, &utc)) {
        dueTime.QuadPart = static_cast<LONGLONG>(CountFromFileTime(utc));
    }
    return dueTime;
}

LARGE_INTEGER IntervalDueTime(LONG intervalMinutes, LONG randomMinutes)
{
    LARGE_INTEGER dueTime{};
    dueTime.QuadPart = (LONGLONG{intervalMinutes} + randomMinutes) * kRelativeMinute;
    return dueTime;
}
