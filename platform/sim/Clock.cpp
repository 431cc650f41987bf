#include "platform/Clock.h"

#include "platform/LastError.h"
#include "platform/sim/MachineState.h"

namespace platform {

using sim::Call;

namespace {

// 3000-12-31 23:59:59 UTC.
constexpr std::int64_t kLastTime = 32'535'215'999;

std::int64_t TimeOfUtc(std::int64_t utc) { return (utc - portable::kUnixEpochCount) / portable::kUnitsPerSecond; }

} // namespace

void ReadLocalClock(SYSTEMTIME* now)
{
    portable::CountToCalendar(static_cast<std::uint64_t>(sim::Machine().LocalNow()), now);
}

std::int64_t ReadTime() { return TimeOfUtc(sim::Machine().UtcNow()); }

BOOL CalendarToFileTime(const SYSTEMTIME* calendar, FILETIME* fileTime)
{
    if (sim::FailsByFault(Call::kCalendarToFileTime)) {
        return FALSE;
    }
    std::uint64_t count = 0;
    if (!portable::CalendarToCount(*calendar, &count)) {
        SetLastErrorCode(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    *fileTime = FileTimeOf(count);
    return TRUE;
}

BOOL FileTimeToCalendar(const FILETIME* fileTime, SYSTEMTIME* calendar)
{
    if (!portable::CountToCalendar(CountOf(*fileTime), calendar)) {
        SetLastErrorCode(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return TRUE;
}

BOOL LocalToUtcFileTime(const FILETIME* local, FILETIME* utc)
{
    if (sim::FailsByFault(Call::kLocalToUtcFileTime)) {
        return FALSE;
    }
    const std::int64_t count = static_cast<std::int64_t>(CountOf(*local)) - sim::Machine().PresentUtcOffset();
    *utc = FileTimeOf(static_cast<std::uint64_t>(count));
    return TRUE;
}

BOOL TimeToLocalCalendar(std::int64_t time, SYSTEMTIME* local)
{
    *local = {};
    if (sim::FailsByFault(Call::kTimeToLocalCalendar) || time < 0 || time > kLastTime) {
        return FALSE;
    }
    const std::int64_t utc = time * portable::kUnitsPerSecond + portable::kUnixEpochCount;
    return portable::CountToCalendar(static_cast<std::uint64_t>(utc + sim::Machine().UtcOffsetAt(utc)), local);
}

std::int64_t LocalCalendarToTime(const SYSTEMTIME& local)
{
    if (sim::FailsByFault(Call::kLocalCalendarToTime)) {
        return -1;
    }
    std::uint64_t firstOfMonth = 0;
    if (!portable::CalendarToCount({local.wYear, local.wMonth, 0, 1, 0, 0, 0, 0}, &firstOfMonth)) {
        return -1;
    }
    const std::int64_t seconds =
        ((local.wDay - std::int64_t{1}) * 24 + local.wHour) * 3600 + local.wMinute * std::int64_t{60} + local.wSecond;
    const std::int64_t utc =
        sim::Machine().UtcOfLocal(static_cast<std::int64_t>(firstOfMonth) + seconds * portable::kUnitsPerSecond);
    const std::int64_t time = TimeOfUtc(utc);
    return utc < portable::kUnixEpochCount || time > kLastTime ? -1 : time;
}

} // namespace platform
