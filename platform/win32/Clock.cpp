#include "platform/Clock.h"

#include <ctime>

namespace platform {

namespace {

// 3000-12-31 23:59:59 UTC, the last time value that the C runtime's local-time functions take.
constexpr std::int64_t kLastTime = 32535215999;

// The last year of which every moment has a FILETIME.
constexpr WORD kLastYear = 30827;

} // namespace

void ReadLocalClock(SYSTEMTIME* now) { ::GetLocalTime(now); }

std::int64_t ReadTime() { return ::_time64(nullptr); }

BOOL CalendarToFileTime(const SYSTEMTIME* calendar, FILETIME* fileTime)
{
    FILETIME converted = {};
    SYSTEMTIME back = {};
    // Not every implementation refuses a day beyond its month or a year that is too late by itself.
    if (!::SystemTimeToFileTime(calendar, &converted) || !::FileTimeToSystemTime(&converted, &back) ||
        calendar->wDay != back.wDay || calendar->wYear > kLastYear) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    *fileTime = converted;
    return TRUE;
}

BOOL FileTimeToCalendar(const FILETIME* fileTime, SYSTEMTIME* calendar)
{
    // The system leaves its result undefined when it fails.
    SYSTEMTIME converted = {};
    if (!::FileTimeToSystemTime(fileTime, &converted)) {
        return FALSE;
    }
    *calendar = converted;
    return TRUE;
}

BOOL LocalToUtcFileTime(const FILETIME* local, FILETIME* utc) { return ::LocalFileTimeToFileTime(local, utc); }

BOOL TimeToLocalCalendar(std::int64_t time, SYSTEMTIME* local)
{
    *local = {};
    tm fields = {};
    // Not every C runtime of this interface refuses what is out of its range.
    if (time < 0 || time > kLastTime || ::_localtime64_s(&fields, &time) != 0) {
        return FALSE;
    }
    local->wYear = static_cast<WORD>(fields.tm_year + 1900);
    local->wMonth = static_cast<WORD>(fields.tm_mon + 1);
    local->wDayOfWeek = static_cast<WORD>(fields.tm_wday);
    local->wDay = static_cast<WORD>(fields.tm_mday);
    local->wHour = static_cast<WORD>(fields.tm_hour);
    local->wMinute = static_cast<WORD>(fields.tm_min);
    local->wSecond = static_cast<WORD>(fields.tm_sec);
    return TRUE;
}

std::int64_t LocalCalendarToTime(const SYSTEMTIME& local)
{
    tm fields = {};
    fields.tm_year = local.wYear - 1900;
    fields.tm_mon = local.wMonth - 1;
    fields.tm_mday = local.wDay;
    fields.tm_hour = local.wHour;
    fields.tm_min = local.wMinute;
    fields.tm_sec = local.wSecond;
    fields.tm_isdst = -1;
    const std::int64_t time = ::_mktime64(&fields);
    return time < 0 || time > kLastTime ? -1 : time;
}

} // namespace platform
