#include "testing/simulation/LocalTime.h"

#include <algorithm>
#include <chrono>

namespace simulation {

using std::chrono::days;
using std::chrono::milliseconds;

SYSTEMTIME CalendarOf(LocalMs local)
{
    const std::chrono::sys_time<milliseconds> time{milliseconds(local)};
    const std::chrono::sys_days day = std::chrono::floor<days>(time);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(time - day);
    const auto word = [](auto number) { return static_cast<WORD>(number); };
    return {word(static_cast<int>(date.year())),
            word(static_cast<unsigned>(date.month())),
            word(std::chrono::weekday(day).c_encoding()),
            word(static_cast<unsigned>(date.day())),
            word(clock.hours().count()),
            word(clock.minutes().count()),
            word(clock.seconds().count()),
            word(clock.subseconds().count())};
}

LocalMs LocalOf(const SYSTEMTIME& calendar)
{
    const std::chrono::sys_days day = std::chrono::year(calendar.wYear) / calendar.wMonth / calendar.wDay;
    const std::int64_t clock =
        calendar.wHour * kHourMs + calendar.wMinute * kMinuteMs + calendar.wSecond * kSecondMs + calendar.wMilliseconds;
    return day.time_since_epoch().count() * kDayMs + clock;
}

std::int64_t CZone::OffsetAt(UtcMs utc) const
{
    int minutes = m_firstMinutes;
    for (const auto& [from, changed] : m_changes) {
        if (from <= utc) {
            minutes = changed;
        }
    }
    return minutes * kMinuteMs;
}

UtcMs CZone::ToUtc(LocalMs local) const
{
    // Offsets lie within a day of UTC, and changes further apart than the two moments looked at here.
    const UtcMs byEarlier = local - OffsetAt(local - kDayMs);
    const UtcMs byLater = local - OffsetAt(local + kDayMs);
    const bool earlierHolds = ToLocal(byEarlier) == local;
    const bool laterHolds = ToLocal(byLater) == local;
    if (earlierHolds && laterHolds) {
        return std::min(byEarlier, byLater);
    }
    return laterHolds ? byLater : byEarlier;
}

} // namespace simulation
