#include "engine/Schedule.h"

namespace {

constexpr LONG kHoursPerDay = 24;
constexpr std::int64_t kSecondsPerMinute = 60;
constexpr LONGLONG kRelativeMinute = -600000000; // a relative due time of one minute, in 100-nanosecond units

} // namespace

bool IsBeforeBaseTime(int hour, LONG fixedClock) { return hour < fixedClock; }

SYSTEMTIME BaseTime(const SYSTEMTIME& day, LONG fixedClock)
{
    // A number that a 16-bit field would cut down to an hour must not become one.
    const bool isHour = fixedClock >= 0 && fixedClock < kHoursPerDay;
    SYSTEMTIME base{};
    base.wYear = day.wYear;
    base.wMonth = day.wMonth;
    base.wDay = day.wDay;
    base.wHour = static_cast<WORD>(isHour ? fixedClock : kHoursPerDay);
    return base;
}

std::int64_t DelayedTime(std::int64_t time, LONG minutes) { return time + minutes * kSecondsPerMinute; }

LARGE_INTEGER IntervalDueTime(LONG intervalMinutes, LONG randomMinutes)
{
    LARGE_INTEGER dueTime{};
    dueTime.QuadPart = (LONGLONG{intervalMinutes} + randomMinutes) * kRelativeMinute;
    return dueTime;
}
