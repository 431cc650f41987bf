// Named mutexes, named auto-reset events and waits on them.
//
// A name with the prefix "Global\" means one object for the whole machine, a name without one object for the user's
// session. Every handle of a name, in whatever process, reaches the same object, which lives as long as any handle. A
// null handle makes each function fail with last error 6. All functions may be called from any thread.
#pragma once

#include "platform/Security.h"
#include "platform/Types.h"

#include <memory>
#include <span>

namespace platform {

// A handle of a named mutex or event; closed when the last copy goes.
class CWaitObject;
using WaitHandle = std::shared_ptr<CWaitObject>;

// Opens the mutex of this name, creating it when there is none. name: must not be null. initialOwner: whether the
// calling thread owns it at once when this call creates it. security: rights of a new object, null for the default.
// The last error is 183 when the mutex existed before, else 0. Null, with the last error set, on failure.
//
// A mutex is owned by a thread, which may acquire it again and releases it as often as it acquired it. When the owner
// ends without releasing, the mutex is abandoned: the next wait acquires it and tells so. On Linux two handles that one
// process opened of one name contend with each other, and only waits through one handle are recursive.
WaitHandle CreateNamedMutex(const wchar_t* name, BOOL initialOwner, const CSecurityDescriptor* security);

// Opens the mutex of this name where some process has it. name: must not be null. Null, with the last error set, on
// failure: 2 when there is none.
WaitHandle OpenNamedMutex(const wchar_t* name);

// Gives up one acquisition of the calling thread. FALSE with last error 288 when it is not the owner.
BOOL ReleaseOwnedMutex(const WaitHandle& mutex);

// Opens the auto-reset event of this name, creating it, not signalled, when there is none. Arguments, last error and
// failure as for CreateNamedMutex.
WaitHandle CreateNamedEvent(const wchar_t* name, const CSecurityDescriptor* security);

// Opens the event of this name where some process has it. name: must not be null. Null, with the last error set, on
// failure: 2 when there is none.
WaitHandle OpenNamedEvent(const wchar_t* name);

// Signals the event: one waiting thread, or else the next to wait, goes on and the event is reset by that.
BOOL SetNamedEvent(const WaitHandle& event);

// Lets one thread that waits at this moment go on, and leaves the event not signalled in every case: with nobody
// waiting the pulse is lost. On Linux it reaches waiting threads of the calling process only.
BOOL PulseNamedEvent(const WaitHandle& event);

// Waits for one object, at most timeoutMs (INFINITE: without limit; 0: only looks). alertable: whether a due timer of
// this thread (Timer.h) may run its routine and end the wait, and InterruptWait (Thread.h) may end it.
// WAIT_OBJECT_0, WAIT_ABANDONED_0 (a mutex, acquired, that its last owner abandoned), WAIT_IO_COMPLETION (one or more
// routines ran, or the wait was interrupted), WAIT_TIMEOUT, or WAIT_FAILED with the last error set.
DWORD WaitForOne(const WaitHandle& object, DWORD timeoutMs, BOOL alertable);

// Waits until one of the objects is signalled. The first signalled one, by position i, is taken: WAIT_OBJECT_0 + i or
// WAIT_ABANDONED_0 + i. Otherwise as WaitForOne.
DWORD WaitForAny(std::span<const WaitHandle> objects, DWORD timeoutMs, BOOL alertable);

} // namespace platform
