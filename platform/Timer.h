// Waitable timers that run a routine on the thread that armed them.
#pragma once

#include "platform/Types.h"

#include <memory>

namespace platform {

// One unnamed, one-shot timer; disarmed and closed when the last reference goes.
class CTimer;
using TimerPtr = std::shared_ptr<CTimer>;

// Runs on the arming thread while it waits alertably (Sync.h). low, high: the halves of a time on the FILETIME scale
// that is not reliable for relative due times; not to be used.
using TimerRoutine = void (*)(void* argument, DWORD low, DWORD high);

// A new timer, not armed. Null, with the last error set, on failure. Any thread.
TimerPtr MakeTimer();

// Arms the timer for the calling thread, replacing an earlier due time together with a routine that is due but has not
// run. *dueTime: negative: relative, in 100-nanosecond units, not moved by changes of the clock; positive: an absolute
// UTC time on the FILETIME scale, moved by them; past or 0: due at once. The timer does not wake a suspended machine.
// argument: handed to routine, must live until the timer is cancelled or closed.
// FALSE, with the last error set (6 for a null timer), on failure.
BOOL ArmTimer(const TimerPtr& timer, const LARGE_INTEGER* dueTime, TimerRoutine routine, void* argument);

// Disarms the timer and drops a routine that is due but has not run. Succeeds for an unarmed timer. FALSE, with the
// last error set (6 for a null timer), on failure. Only the thread that armed it.
BOOL DisarmTimer(const TimerPtr& timer);

} // namespace platform
