// The flag that InterruptWait (platform/Thread.h) sets for the interrupted thread.
//
// A queued APC is not enough: a wait whose object is signalled already takes the object and leaves the APC pending.
#pragma once

namespace platform::win32 {

// Whether the calling thread has been interrupted since the last call.
bool TakeInterruption();

} // namespace platform::win32
