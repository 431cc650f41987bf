// Letting time pass. For a bounded number of tries at something that another program holds for moments; what tells of
// its end is waited for instead.
#pragma once

#include "platform/Types.h"

namespace platform {

// Lets at least this many milliseconds pass on the calling thread, not alertably. Any thread.
void Pause(DWORD timeMs);

} // namespace platform
