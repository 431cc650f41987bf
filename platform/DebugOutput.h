// The debugger output: the stream that a debugger or a debug-output viewer shows.
#pragma once

#include "platform/Types.h"

namespace platform {

// Writes one text, line feed included, in one piece: texts of different threads do not mix. Windows: the debugger
// channel; Linux: standard error as UTF-8 in one write. There is no result: with nobody listening it is lost.
// The calling thread's last-error code stays as it is. Any thread.
void OutputDebugText(const CString& text);

} // namespace platform
