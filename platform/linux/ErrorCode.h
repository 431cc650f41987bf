// The system's error numbers as Windows error codes.
#pragma once

#include "platform/Types.h"

namespace platform::linux {

// The Windows code that stands for an errno value; 31 (general failure) for one without a counterpart.
DWORD ErrorCodeOf(int error);

// Sets the calling thread's last error from an errno value.
void SetLastErrorFrom(int error);

} // namespace platform::linux
