#include "testing/simulation/Due.h"

#include <algorithm>

namespace simulation {

Minutes RandomMinutesBetween(std::int64_t minimum, std::int64_t maximum)
{
    const std::int64_t low = std::min(minimum, maximum);
    const std::int64_t high = std::max(minimum, maximum);
    // Integer division truncates toward zero.
    return {low, (32'767 * (high - low) + 32'768 * low) / 32'768};
}

CDue CDue::AfterInterval(std::int64_t fromMs, std::int64_t intervalMinutes, const Minutes& random)
{
    std::vector<std::int64_t> times;
    for (std::int64_t minutes = random.low; minutes <= random.high; ++minutes) {
        times.push_back(fromMs + std::max<std::int64_t>(intervalMinutes + minutes, 0) * kMinuteMs);
    }
    return {false, std::move(times)};
}

std::optional<CDue> CDue::AtBaseTime(const CZone& zone, UtcMs now, std::int64_t hour, const Minutes& delay)
{
    if (hour < 0 || hour > 23) {
        return std::nullopt;
    }
    SYSTEMTIME base = CalendarOf(zone.ToLocal(now));
    base.wHour = static_cast<WORD>(hour);
    base.wMinute = base.wSecond = base.wMilliseconds = 0;
    const UtcMs baseUtc = zone.ToUtc(LocalOf(base));
    std::vector<std::int64_t> times;
    for (std::int64_t minutes = delay.low; minutes <= delay.high; ++minutes) {
        // The way back to UTC goes by the offset that holds now, not then.
        times.push_back(zone.ToLocal(baseUtc + minutes * kMinuteMs) - zone.OffsetAt(now));
    }
    return CDue(true, std::move(times));
}

bool CDue::MayFallDueAt(std::int64_t nowMs, UtcMs utcNow, bool mayBeLate) const
{
    const std::int64_t now = m_isAbsolute ? utcNow : nowMs;
    return std::any_of(m_times.begin(), m_times.end(),
                       [&](std::int64_t time) { return time == now || (mayBeLate && time < now); });
}

bool CDue::IsOverdue(std::int64_t nowMs, UtcMs utcNow) const
{
    return *std::max_element(m_times.begin(), m_times.end()) <= (m_isAbsolute ? utcNow : nowMs);
}

} // namespace simulation
