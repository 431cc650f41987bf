#include "platform/DebugOutput.h"

namespace platform {

void OutputDebugText(const CString& text) { ::OutputDebugStringW(text.c_str()); }

} // namespace platform
