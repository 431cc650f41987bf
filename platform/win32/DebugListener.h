// The listening end of the debugger output: what a debug-output viewer does.
//
// A writer puts its process identifier and one text into the shared memory DBWIN_BUFFER and sets DBWIN_DATA_READY; the
// listener sets DBWIN_BUFFER_READY when it has taken the text. A session has one listener at a time. The channel holds
// at most 4091 bytes of text, a longer one arrives cut; it carries the writer's ANSI code page, so that characters
// outside of it arrive replaced.
#pragma once

#include "platform/Types.h"
#include "platform/win32/Handle.h"

#include <memory>
#include <string>

namespace platform::win32 {

// One text as it arrived.
struct DebugMessage {
    DWORD processId = 0;
    CString text = {};
};

// Listens from Open until it is destroyed. One thread at a time.
class CDebugListener {
public:
    // Waits, at most timeoutMs, until nobody else listens, and becomes the session's listener. Null, last error set, on
    // failure; 183 when somebody else listened all the time.
    static std::unique_ptr<CDebugListener> Open(DWORD timeoutMs);
    // A writer that waits goes on; its text is lost.
    ~CDebugListener();
    CDebugListener(const CDebugListener&) = delete;
    CDebugListener& operator=(const CDebugListener&) = delete;

    // Signalled, until a wait takes it, while a text is there. Stays owned here.
    HANDLE DataReady() const { return m_dataReady.Get(); }
    // The text that is there, and lets the next writer go on. Only after a wait for DataReady has succeeded.
    DebugMessage Take();
    // Waits at most timeoutMs for a text. Whether there was one.
    bool Next(DWORD timeoutMs, DebugMessage* message);

private:
    CDebugListener() = default;
    bool TryOpen();

    CKernelHandle m_bufferReady;
    CKernelHandle m_dataReady;
    CKernelHandle m_mapping;
    CMappedView m_view;
};

} // namespace platform::win32
