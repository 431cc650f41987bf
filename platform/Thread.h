// Threads, their identifiers and the end of the process.
#pragma once

#include "platform/Types.h"

#include <memory>

namespace platform {

// A started thread. Dropping the last reference lets go of the thread; it never ends or stops it.
class CThread;
using ThreadPtr = std::shared_ptr<CThread>;

// The thread's procedure; its result is the thread's exit code.
using ThreadEntry = DWORD (*)(void* argument);

// Starts a thread that calls entry(argument) at once. argument: handed through, may be null, stays the caller's.
// Null, with the last error set, when the thread cannot be created. Any thread.
ThreadPtr StartThread(ThreadEntry entry, void* argument);

// Waits until the thread has ended, at most timeoutMs (INFINITE: without limit). WAIT_OBJECT_0 when it has ended,
// WAIT_TIMEOUT when not, WAIT_FAILED with last error 6 for null. Any thread but the one waited for.
DWORD WaitForThread(const ThreadPtr& thread, DWORD timeoutMs);

// Ends the thread's alertable wait (Sync.h), the one it is in or else its next one, with WAIT_IO_COMPLETION. From here
// on that wait takes no object. Null, and a thread that has ended: does nothing. Any thread.
void InterruptWait(const ThreadPtr& thread);

// The calling process's and thread's identifiers, as the system shows them. Any thread.
DWORD CurrentProcessIdentifier();
DWORD CurrentThreadIdentifier();

// Ends the process with this exit code. Threads of StartThread that still run are not waited for: they end wherever
// they are, and none of them sees an object of static storage destroyed; without such threads those objects are
// destroyed as after a return from main. On the simulated machine this ends the first thread, whose local objects are
// destroyed, and the process ends, with this code, when its other threads have ended. Main thread.
[[noreturn]] void EndProcess(int exitCode);

} // namespace platform
