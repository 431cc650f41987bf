// The calling thread's last-error code. Each thread has its own; a new thread starts at 0.
#pragma once

#include "platform/Types.h"

namespace platform {

// The calling thread's code (a Windows error number on every system). Any thread.
DWORD GetLastErrorCode();

// Replaces the calling thread's code. Any thread.
void SetLastErrorCode(DWORD code);

} // namespace platform
