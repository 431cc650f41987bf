#include "platform/Clock.h"

#include "platform/LastError.h"
#include "platform/portable/FileTime.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <limits>
#include <optional>

namespace platform {

namespace {

// 3000-12-31 23:59:59 UTC, the last time value that converts.
constexpr std::int64_t kLastTime = 32'535'215'999;

// Counts the looks at the machine's zone, after each of which it may be another.
constinit std::atomic<unsigned> g_zoneLooks = 0;

// A conversion alone would not notice that the machine's zone has been changed: the C library looks at it again only
// when it is told to, which costs a system call.
timespec ReadWallClock()
{
    tzset();
    g_zoneLooks.fetch_add(1, std::memory_order_relaxed);
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

std::tm BreakDown(std::time_t time)
{
    std::tm local = {};
    localtime_r(&time, &local);
    return local;
}

// The seconds from 1970 to a calendar time, as if each day had as many. A day beyond its month runs on into the next.
std::int64_t CalendarSeconds(int year, int month, int day, int hour, int minute, int second)
{
    using namespace std::chrono;
    const sys_days first{std::chrono::year{year} / month / 1};
    return seconds{first.time_since_epoch() + days{day - 1} + hours{hour} + minutes{minute}}.count() + second;
}

// The local calendar's seconds at a time, by the C library.
std::int64_t ConvertToLocalSeconds(std::int64_t time)
{
    const std::tm local = BreakDown(time);
    // A leap second, where the zone's table has them, does not exist in a calendar time.
    return CalendarSeconds(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                           std::min(local.tm_sec, 59));
}

constexpr std::int64_t kDaySeconds = 86400;

// What a day of UTC adds to its times. Reports have hundreds of times of few days: asking the C library for each of
// them took a sixth of an analysis.
struct ZoneDay {
    unsigned zoneLooks; // how often the zone had been looked at
    std::int64_t day;
    std::optional<std::int64_t> difference; // none: it changes within the day
};

std::int64_t LocalSeconds(std::int64_t time)
{
    constexpr std::size_t kDays = 4; // a power of 2
    constexpr ZoneDay kNone{0, std::numeric_limits<std::int64_t>::min(), {}};
    thread_local constinit ZoneDay days[kDays] = {kNone, kNone, kNone, kNone};
    const std::int64_t day = std::chrono::floor<std::chrono::days>(std::chrono::seconds(time)).count();
    ZoneDay& known = days[static_cast<std::size_t>(day) % kDays];
    const unsigned looks = g_zoneLooks.load(std::memory_order_relaxed);
    if (known.day != day || known.zoneLooks != looks) {
        const std::int64_t first = day * kDaySeconds;
        const std::int64_t last = first + kDaySeconds - 1;
        const std::int64_t difference = ConvertToLocalSeconds(first) - first;
        known = {looks, day, {}};
        if (ConvertToLocalSeconds(last) - last == difference) {
            known.difference = difference;
        }
    }
    return known.difference ? time + *known.difference : ConvertToLocalSeconds(time);
}

SYSTEMTIME CalendarOf(std::int64_t localSeconds)
{
    SYSTEMTIME local = {};
    portable::CountToCalendar(
        static_cast<std::uint64_t>(localSeconds * portable::kUnitsPerSecond + portable::kUnixEpochCount), &local);
    return local;
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
    *now = CalendarOf(ConvertToLocalSeconds(wall.tv_sec));
    now->wMilliseconds = static_cast<WORD>(wall.tv_nsec / 1'000'000);
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
    const std::int64_t offset = BreakDown(ReadWallClock().tv_sec).tm_gmtoff * portable::kUnitsPerSecond;
    const std::uint64_t count = CountOf(*local);
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
    if (time < 0 || time > kLastTime) {
        return FALSE;
    }
    *local = CalendarOf(LocalSeconds(time));
    return TRUE;
}

std::int64_t LocalCalendarToTime(const SYSTEMTIME& local)
{
    const std::int64_t asUtc =
        CalendarSeconds(local.wYear, local.wMonth, local.wDay, local.wHour, local.wMinute, local.wSecond);
    // The difference from UTC a day before holds, or, when it changes within a day, that of a day after. A time that
    // does not exist is moved on.
    const auto guess = [asUtc](std::int64_t near) { return asUtc - (LocalSeconds(near) - near); };
    std::int64_t time = guess(asUtc - kDaySeconds);
    if (LocalSeconds(time) != asUtc) {
        const std::int64_t after = guess(asUtc + kDaySeconds);
        time = LocalSeconds(after) == asUtc ? after : time;
    }
    return time >= 0 && time <= kLastTime ? time : -1;
}

} // namespace platform
