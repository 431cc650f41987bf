// Arithmetic between calendar times and counts of 100-nanosecond units since 1601-01-01 00:00:00, for systems without
// functions of their own. Pure; any thread.
#pragma once

#include "platform/Types.h"

namespace platform::portable {

inline constexpr std::int64_t kUnitsPerMs = 10'000;
inline constexpr std::int64_t kUnitsPerSecond = 10'000'000;

// The count at 1970-01-01 00:00:00.
inline constexpr std::int64_t kUnixEpochCount = 116'444'736'000'000'000;

// Converts a calendar time; the day of week is not looked at. FALSE, with *count untouched, for a time that is not
// valid: year outside 1601 to 30827, month outside 1 to 12, day outside its month, hour above 23, minute or second
// above 59, milliseconds above 999.
BOOL CalendarToCount(const SYSTEMTIME& calendar, std::uint64_t* count);

// The inverse, rounded down to milliseconds; fills in the day of week. FALSE, with *calendar untouched, for a count of
// 0x8000000000000000 or more.
BOOL CountToCalendar(std::uint64_t count, SYSTEMTIME* calendar);

} // namespace platform::portable
