#include "platform/Pause.h"

namespace platform {

void Pause(DWORD timeMs) { ::Sleep(timeMs); }

} // namespace platform
