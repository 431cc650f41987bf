// When the next update pass is due: arithmetic on its inputs alone.
#pragma once

#include "platform/Types.h"

// Whether today's base update is still to come. hour: of the local time now, -1 when it is not known; fixedClock: the
// hour of the base update as the settings have it, any number.
bool IsBeforeBaseTime(int hour, LONG fixedClock);

// fixedClock o'clock of a day as a time value, daylight saving left to the system. day: year, month and day of month
// count, each 0 when it is not known. Throws COleException for a day or an hour that does not exist, hence for a
// fixedClock above 23 (CalendarTime.h).
std::int64_t BaseTime(const SYSTEMTIME& day, LONG fixedClock);

// The absolute due time, on the FILETIME scale, of a base update delayed by these minutes; 0, which is due at once,
// when it cannot be converted. baseTime: a time value.
LARGE_INTEGER BaseDueTime(std::int64_t baseTime, LONG delayMinutes);

// The relative due time, in negative 100-nanosecond units, of the pass after an interval with a random addition. Zero
// or less minutes give 0 or more: due at once.
LARGE_INTEGER IntervalDueTime(LONG intervalMinutes, LONG randomMinutes);
