// The model's own calendar: local times with changes of the offset from UTC.
#pragma once

#include "platform/Types.h"

#include <compare>
#include <map>

namespace simulation {

// A local wall-clock time in milliseconds since 1970-01-01 00:00:00 local time; a UTC time in milliseconds since then.
using LocalMs = std::int64_t;
using UtcMs = std::int64_t;

inline constexpr std::int64_t kSecondMs = 1'000;
inline constexpr std::int64_t kMinuteMs = 60 * kSecondMs;
inline constexpr std::int64_t kHourMs = 60 * kMinuteMs;
inline constexpr std::int64_t kDayMs = 24 * kHourMs;

SYSTEMTIME CalendarOf(LocalMs local);
LocalMs LocalOf(const SYSTEMTIME& calendar);

// Which offset from UTC holds when.
class CZone {
public:
    explicit CZone(int offsetMinutes) : m_firstMinutes(offsetMinutes) {}
    // From a UTC time on. Two changes are at least two days apart.
    void Change(UtcMs from, int offsetMinutes) { m_changes[from] = offsetMinutes; }

    std::int64_t OffsetAt(UtcMs utc) const;
    LocalMs ToLocal(UtcMs utc) const { return utc + OffsetAt(utc); }
    // The earlier one of two; a local time that is left out counts by the offset before the change.
    UtcMs ToUtc(LocalMs local) const;

private:
    int m_firstMinutes;
    std::map<UtcMs, int> m_changes;
};

} // namespace simulation
