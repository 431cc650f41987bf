#include "platform/DebugOutput.h"

namespace platform {

void OutputDebugText(const CString& text)
{
    // With nobody listening, the system finds no listener and leaves the error of that search.
    const DWORD lastError = ::GetLastError();
    ::OutputDebugStringW(text.c_str());
    ::SetLastError(lastError);
}

} // namespace platform
