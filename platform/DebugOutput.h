// The debugger output: the stream that a debugger or a debug-output viewer shows.
#pragma once

#include "platform/Types.h"

namespace platform {

// Writes one text, line feed included, in one piece: texts of different threads do not mix. Windows: the debugger
// channel; Linux: standard error as UTF-8, where other processes' texts do not mix either with one of up to 4096 bytes.
// There is no result: with nobody listening it is lost. On Linux that is a text that nobody reads for 0.1 s; while such
// texts are being lost, the next ones do not wait. The calling thread's last-error code stays as it is. Any thread.
void OutputDebugText(const CString& text);

} // namespace platform
