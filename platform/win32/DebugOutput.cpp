#include "platform/DebugOutput.h"

namespace platform {

void OutputDebugText(const CString& text)
{
    // With nobody listening the system looks for a listener in vain and leaves the error of that.
    const DWORD lastError = ::GetLastError();
    ::OutputDebugStringW(text.c_str());
    ::SetLastError(lastError);
}

} // namespace platform
