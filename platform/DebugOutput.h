// The debugger output: the stream that a debugger or a debug-output viewer shows.
#pragma once

#include "platform/Types.h"

namespace platform {

// Writes one text, line feed included, in one piece: texts of different threads do not mix. Windows: the debugger
// channel; Linux: standard error as UTF-8, where texts of up to 4096 bytes do not mix with those of other processes.
// There is no result: with nobody listening it is lost. On Linux a text is lost when the reader makes no room for it
// within 0.1 s; after a lost text the next ones do not wait until one has been written. The calling thread's last-error
// code stays as it is. Any thread.
void OutputDebugText(const CString& text);

} // namespace platform
