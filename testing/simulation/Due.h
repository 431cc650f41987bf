// When a pass is due, as the settings and the clock say.
#pragma once

#include "testing/simulation/LocalTime.h"

#include <optional>
#include <utility>
#include <vector>

namespace simulation {

// Whole minutes, both bounds reached.
struct Minutes {
    std::int64_t low = 0;
    std::int64_t high = 0;
};

// The minutes that the random rule can give between two bounds in either order: r x (high - low) / 32768 + low for r
// from 0 to 32767, truncated toward zero.
Minutes RandomMinutesBetween(std::int64_t minimum, std::int64_t maximum);

// A due time of which only the bounds are known. Virtual times in milliseconds.
class CDue {
public:
    // Relative: an interval after a moment, not moved by the clock. Less than a minute is none.
    static CDue AfterInterval(std::int64_t fromMs, std::int64_t intervalMinutes, const Minutes& random);
    // By the clock: the base time of a day, with its delay. empty when the day has no such hour.
    static std::optional<CDue> AtBaseTime(const CZone& zone, UtcMs now, std::int64_t hour, const Minutes& delay);

    // Whether a timer armed for this may be found due at this moment. mayBeLate: its due time may also lie before.
    bool MayFallDueAt(std::int64_t nowMs, UtcMs utcNow, bool mayBeLate) const;
    bool IsByClock() const { return m_isAbsolute; }
    // Whether it must have fallen due by now.
    bool IsOverdue(std::int64_t nowMs, UtcMs utcNow) const;

private:
    CDue(bool isAbsolute, std::vector<std::int64_t> times) : m_isAbsolute(isAbsolute), m_times(std::move(times)) {}

    bool m_isAbsolute;
    std::vector<std::int64_t> m_times; // every one possible, not empty
};

} // namespace simulation
