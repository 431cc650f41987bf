#include "platform/Pause.h"

#include <chrono>
#include <thread>

namespace platform {

void Pause(DWORD timeMs) { std::this_thread::sleep_for(std::chrono::milliseconds(timeMs)); }

} // namespace platform
