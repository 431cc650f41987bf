#include "data/CalendarTime.h"

#include "platform/Clock.h"

std::int64_t TimeFromCalendar(const SYSTEMTIME& local)
{
    if (local.wYear < 1900 || local.wMonth < 1 || local.wMonth > 12 || local.wDay < 1 || local.wDay > 31 ||
        local.wHour > 23 || local.wMinute > 59 || local.wSecond > 59) {
        throw COleException(kInvalidDatePart);
    }
    const std::int64_t time = platform::LocalCalendarToTime(local);
    if (time == -1) {
        throw COleException(kDateConversionFailed);
    }
    return time;
}

SYSTEMTIME CalendarFromTime(std::int64_t time)
{
    SYSTEMTIME local{};
    platform::TimeToLocalCalendar(time, &local);
    return local;
}

ULONGLONG CountFromTime(std::int64_t time)
{
    const SYSTEMTIME calendar = CalendarFromTime(time);
    FILETIME local{};
    FILETIME utc{};
    if (!platform::CalendarToFileTime(&calendar, &local) || !platform::LocalToUtcFileTime(&local, &utc)) {
        return 0;
    }
    return platform::CountOf(utc);
}
