#include "ctl/ExpectedPass.h"

#include "config/ConfigUtil.h"
#include "platform/Clock.h"

#include <algorithm>

namespace ctl {

namespace {

constexpr std::int64_t kMinuteSeconds = 60;
constexpr LONG kHoursPerDay = 24;

// base plus the random minutes between both bounds, in whatever order they are; amporasrv truncates toward zero.
PassRange Delayed(std::int64_t base, std::int64_t minutes, LONG minimum, LONG maximum)
{
    const auto [low, high] = std::minmax(minimum, maximum);
    return {base + std::max<std::int64_t>(minutes + low, 0) * kMinuteSeconds,
            base + std::max<std::int64_t>(minutes + high, 0) * kMinuteSeconds};
}

PassRange AfterInterval(std::int64_t base)
{
    LONG interval = 0;
    LONG minimum = 0;
    LONG maximum = 0;
    CConfigUtil::GetIntervalSetting(interval, minimum, maximum);
    return Delayed(base, interval, minimum, maximum);
}

// FixedClock o'clock of the day on which a copy was started before that hour.
std::optional<PassRange> AtFixedClock(std::int64_t copyStart)
{
    LONG clock = 0;
    LONG minimum = 0;
    LONG maximum = 0;
    CConfigUtil::GetFixedClockSetting(clock, minimum, maximum);
    SYSTEMTIME day{};
    if (clock >= kHoursPerDay || !platform::TimeToLocalCalendar(copyStart, &day) || day.wHour >= clock) {
        return std::nullopt;
    }
    day.wHour = static_cast<WORD>(clock);
    day.wMinute = 0;
    day.wSecond = 0;
    const std::int64_t base = platform::LocalCalendarToTime(day);
    return base == -1 ? std::nullopt : std::optional(Delayed(base, 0, minimum, maximum));
}

} // namespace

std::optional<PassRange> ExpectPass(const PassTrace& trace)
{
    const std::int64_t base = std::max(trace.copyStart, trace.youngestWrite);
    if (base == -1) {
        return std::nullopt;
    }
    PassRange range = AfterInterval(base);
    if (trace.youngestWrite < trace.copyStart) {
        if (const std::optional<PassRange> clock = AtFixedClock(trace.copyStart)) {
            range = {std::min(range.from, clock->from), std::max(range.to, clock->to)};
        }
    }
    if (range.to < trace.now) {
        return std::nullopt;
    }
    range.from = std::max(range.from, trace.now);
    return range;
}

} // namespace ctl
