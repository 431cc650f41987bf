#include "platform/LastError.h"

namespace platform {

namespace {

thread_local DWORD g_lastError = ERROR_SUCCESS;

} // namespace

DWORD GetLastErrorCode() { return g_lastError; }

void SetLastErrorCode(DWORD code) { g_lastError = code; }

} // namespace platform
