#include "platform/Clock.h"

#include "platform/LastError.h"
#include "platform/portable/FileTime.h"

#include <ctime>

namespace platform {

namespace {

// 3000-12-31 23:59:59 UTC, the last time value that converts.
constexpr std::int64_t kLastTime = 32'535'215'999;

// A conversion alone would not notice that the machine's zone has been changed: the C library looks at it again only
// when it is told to, which costs a system call.
timespec ReadWallClock()
{
    tzset();
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

bool BreakDown(std::time_t time, std::tm* local) { return localtime_r(&time, local) != nullptr; }

// The difference from UTC that is in force at a time.
std::time_t OffsetAt(std::time_t time)
{
    std::tm local = {};
    return BreakDown(time, &local) ? local.tm_gmtoff : 0;
}

SYSTEMTIME CalendarOf(const std::tm& local, int milliseconds)
{
    return {static_cast<WORD>(local.tm_year + 1900), static_cast<WORD>(local.tm_mon + 1),
            static_cast<WORD>(local.tm_wday), static_cast<WORD>(local.tm_mday), static_cast<WORD>(local.tm_hour),
            static_cast<WORD>(local.tm_min),
            // A leap second, where the zone's table has them, does not exist in a calendar time.
            static_cast<WORD>(local.tm_sec > 59 ? 59 : local.tm_sec), static_cast<WORD>(milliseconds)};
}

BOOL Refuse()
{
    SetLastErrorCode(ERROR_INVALID_PARAMETER);
    return FALSE;
}

} // namespace

void ReadLocalClock(SYSTEMTIME* now)
{
    const timespec wall = ReadWallClock();
    std::tm local = {};
    *now = {};
    if (BreakDown(wall.tv_sec, &local)) {
        *now = CalendarOf(local, static_cast<int>(wall.tv_nsec / 1'000'000));
    }
}

std::int64_t ReadTime() { return ReadWallClock().tv_sec; }

BOOL CalendarToFileTime(const SYSTEMTIME* calendar, FILETIME* fileTime)
{
    std::uint64_t count = 0;
    if (!portable::CalendarToCount(*calendar, &count)) {
        return Refuse();
    }
    *fileTime = FileTimeOf(count);
    return TRUE;
}

BOOL FileTimeToCalendar(const FILETIME* fileTime, SYSTEMTIME* calendar)
{
    return portable::CountToCalendar(CountOf(*fileTime), calendar) ? TRUE : Refuse();
}

BOOL LocalToUtcFileTime(const FILETIME* local, FILETIME* utc)
{
    // The Windows function applies the difference from UTC that is in force now, not the one at the time converted.
    std::tm now = {};
    if (!BreakDown(ReadWallClock().tv_sec, &now)) {
        return Refuse();
    }
    const std::uint64_t count = CountOf(*local);
    const std::int64_t offset = now.tm_gmtoff * portable::kUnitsPerSecond;
    const std::uint64_t converted = count - static_cast<std::uint64_t>(offset);
    if (offset > 0 ? converted > count : converted < count) {
        return Refuse();
    }
    *utc = FileTimeOf(converted);
    return TRUE;
}

BOOL TimeToLocalCalendar(std::int64_t time, SYSTEMTIME* local)
{
    *local = {};
    std::tm parts = {};
    if (time < 0 || time > kLastTime || !BreakDown(time, &parts)) {
        return FALSE;
    }
    *local = CalendarOf(parts, 0);
    return TRUE;
}

std::int64_t LocalCalendarToTime(const SYSTEMTIME& local)
{
    std::tm parts = {};
    parts.tm_year = local.wYear - 1900;
    parts.tm_mon = local.wMonth - 1;
    parts.tm_mday = local.wDay;
    parts.tm_hour = local.wHour;
    parts.tm_min = local.wMinute;
    parts.tm_sec = local.wSecond;
    // mktime would look at the zone again at each call. The difference from UTC a day before holds, or, when it changes
    // within a day, that of a day after. A time that does not exist is moved on.
    const std::time_t asUtc = timegm(&parts);
    constexpr std::time_t kDaySeconds = 86400;
    std::time_t time = asUtc - OffsetAt(asUtc - kDaySeconds);
    if (asUtc - OffsetAt(time) != time) {
        const std::time_t after = asUtc - OffsetAt(asUtc + kDaySeconds);
        time = asUtc - OffsetAt(after) == after ? after : time;
    }
    return time >= 0 && time <= kLastTime ? time : -1;
}

} // namespace platform
