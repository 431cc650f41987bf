// Calendar and clock.
//
// Three scales: calendar time (SYSTEMTIME, local wall clock unless said otherwise), FILETIME (100-nanosecond units
// since 1601-01-01 00:00:00) and time values (seconds since 1970-01-01 00:00:00 UTC, signed 64-bit). The wall clock may
// jump in either direction; nothing here is monotonic. All functions may be called from any thread.
//
// On Linux a change of the machine's zone is noticed when the clock is read, by LocalToUtcFileTime too; the other
// conversions use the zone that was noticed last.
#pragma once

#include "platform/Types.h"

namespace platform {

// The local wall clock with millisecond resolution, day of week filled in. now: must not be null.
void ReadLocalClock(SYSTEMTIME* now);

// The wall clock as a time value.
std::int64_t ReadTime();

// Converts a calendar time to the FILETIME scale without any change of zone. The day of week is not looked at.
// FALSE, with *fileTime untouched and last error 87, for a time that is not valid: year outside 1601 to 30827, month
// outside 1 to 12, day outside its month, hour above 23, minute or second above 59, milliseconds above 999.
BOOL CalendarToFileTime(const SYSTEMTIME* calendar, FILETIME* fileTime);

// The inverse of CalendarToFileTime; fills in the day of week. FALSE, with *calendar untouched and last error 87, for
// a count of 0x8000000000000000 or more.
BOOL FileTimeToCalendar(const FILETIME* fileTime, SYSTEMTIME* calendar);

// The two halves of a FILETIME as one count of its units, and a count taken apart.
constexpr std::uint64_t CountOf(const FILETIME& fileTime)
{
    return (std::uint64_t{fileTime.dwHighDateTime} << 32) | fileTime.dwLowDateTime;
}
constexpr FILETIME FileTimeOf(std::uint64_t count)
{
    return {static_cast<DWORD>(count & 0xFFFFFFFFU), static_cast<DWORD>(count >> 32)};
}

// Turns a local FILETIME into UTC. Daylight saving as the system's own function has it; FALSE on failure.
BOOL LocalToUtcFileTime(const FILETIME* local, FILETIME* utc);

// Converts a time value to local calendar time (milliseconds 0, day of week filled in). FALSE, with *local all zero,
// for a negative time and for one after the year 3000.
BOOL TimeToLocalCalendar(std::int64_t time, SYSTEMTIME* local);

// Converts a local calendar time to a time value, leaving it to the system whether daylight saving applies.
// Milliseconds and day of week are not looked at; a day beyond its month runs on into the next. -1 for a time before
// 1970-01-01 00:00:00 UTC or after the year 3000.
std::int64_t LocalCalendarToTime(const SYSTEMTIME& local);

} // namespace platform
