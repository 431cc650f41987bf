#include "platform/LastError.h"

namespace platform {

DWORD GetLastErrorCode() { return ::GetLastError(); }

void SetLastErrorCode(DWORD code) { ::SetLastError(code); }

} // namespace platform
