// Following what other programs write to the debugger output (DebugOutput.h).
#pragma once

#include "platform/Types.h"

#include <memory>

namespace platform {

// Ended when the last copy goes.
class CTraceChannel;
using TraceChannelPtr = std::shared_ptr<CTraceChannel>;

// Follows what is written from now on: Windows: by every program of the session, of which the system allows one
// listener; Linux: to the journal, by the unit of this name of the user's service manager. processId: of the program
// that is to be followed, 0 when none runs yet. Null, with the last error set, on failure: 183 when somebody else
// listens, 50 when nobody keeps what that program writes (Linux: the unit does not run it, or there is no journal).
TraceChannelPtr OpenTraceChannel(const wchar_t* unitName, DWORD processId);

// One text as it arrived.
struct TraceText {
    DWORD processId = 0; // of its writer; 0 on Linux, where the unit has one program only
    CString text; // Windows: in characters of the ANSI code page, cut after 4091 bytes; a line feed may be missing
};

// Waits for the next text, at most timeoutMs (INFINITE: without limit). WAIT_OBJECT_0 with *text filled, WAIT_TIMEOUT,
// or WAIT_FAILED with the last error set: 6 for null. One thread at a time.
DWORD ReadTraceText(const TraceChannelPtr& channel, DWORD timeoutMs, TraceText* text);

} // namespace platform
