#include "platform/LastError.h"

#include "platform/sim/Scheduler.h"

namespace platform {

DWORD GetLastErrorCode() { return sim::CScheduler::Self().context.lastError; }

void SetLastErrorCode(DWORD code) { sim::CScheduler::Self().context.lastError = code; }

} // namespace platform
