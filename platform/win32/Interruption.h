// What InterruptWait (platform/Thread.h) leaves for the waits of the interrupted thread.
//
// A queued routine alone does not do: a wait that begins when its object is signalled already takes the object and
// leaves the routine for another wait.
#pragma once

namespace platform::win32 {

// Whether the calling thread has been interrupted since the last call.
bool TakeInterruption();

} // namespace platform::win32
