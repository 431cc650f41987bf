#include "platform/portable/FileTime.h"

#include <chrono>

namespace platform::portable {

namespace {

using Days = std::chrono::days;
using Units = std::chrono::duration<std::int64_t, std::ratio<1, kUnitsPerSecond>>;

constexpr std::chrono::sys_days kFirstDay{std::chrono::January / 1 / 1601};

} // namespace

BOOL CalendarToCount(const SYSTEMTIME& calendar, std::uint64_t* count)
{
    if (calendar.wYear < 1601 || calendar.wYear > 30827 || calendar.wHour > 23 || calendar.wMinute > 59 ||
        calendar.wSecond > 59 || calendar.wMilliseconds > 999) {
        return FALSE;
    }
    const std::chrono::year_month_day date{std::chrono::year{calendar.wYear}, std::chrono::month{calendar.wMonth},
                                           std::chrono::day{calendar.wDay}};
    // A calendar field has 16 bits, the library's month and day have 8: values that only look right are refused here.
    if (calendar.wMonth > 12 || calendar.wDay > 31 || !date.ok()) {
        return FALSE;
    }
    const Units units = (std::chrono::sys_days{date} - kFirstDay) + std::chrono::hours{calendar.wHour} +
                        std::chrono::minutes{calendar.wMinute} + std::chrono::seconds{calendar.wSecond} +
                        std::chrono::milliseconds{calendar.wMilliseconds};
    *count = static_cast<std::uint64_t>(units.count());
    return TRUE;
}

BOOL CountToCalendar(std::uint64_t count, SYSTEMTIME* calendar)
{
    if (count >= 0x8000000000000000) {
        return FALSE;
    }
    const Units units{static_cast<std::int64_t>(count)};
    const auto days = std::chrono::floor<Days>(units);
    const std::chrono::year_month_day date{kFirstDay + days};
    const std::chrono::hh_mm_ss time{std::chrono::floor<std::chrono::milliseconds>(units - days)};
    calendar->wYear = static_cast<WORD>(static_cast<int>(date.year()));
    calendar->wMonth = static_cast<WORD>(static_cast<unsigned>(date.month()));
    calendar->wDayOfWeek = static_cast<WORD>(std::chrono::weekday{kFirstDay + days}.c_encoding());
    calendar->wDay = static_cast<WORD>(static_cast<unsigned>(date.day()));
    calendar->wHour = static_cast<WORD>(time.hours().count());
    calendar->wMinute = static_cast<WORD>(time.minutes().count());
    calendar->wSecond = static_cast<WORD>(time.seconds().count());
    calendar->wMilliseconds = static_cast<WORD>(time.subseconds().count());
    return TRUE;
}

} // namespace platform::portable
