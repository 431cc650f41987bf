// When the next update pass is due: arithmetic on its inputs alone. Whoever calls it converts between calendar time and
// the other scales of time (data/CalendarTime.h).
#pragma once

#include "platform/Types.h"

// Whether today's base update is still ahead. hour: of the local time now, -1 when it is not known; fixedClock: the
// hour of the base update as the settings have it, any number.
bool IsBeforeBaseTime(int hour, LONG fixedClock);

// fixedClock o'clock of a day, both in local calendar time. day: year, month and day of month count. A fixedClock that
// is no hour of a day gives hour 24, which TimeFromCalendar refuses.
SYSTEMTIME BaseTime(const SYSTEMTIME& day, LONG fixedClock);

// The time value these minutes after another one; negative minutes go back.
std::int64_t DelayedTime(std::int64_t time, LONG minutes);

// The relative due time, in negative 100-nanosecond units, of the pass after an interval with a random addition. Zero
// or less minutes give 0 or more: due at once.
LARGE_INTEGER IntervalDueTime(LONG intervalMinutes, LONG randomMinutes);
