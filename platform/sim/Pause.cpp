#include "platform/Pause.h"

#include "platform/sim/MachineState.h"

namespace platform {

void Pause(DWORD timeMs)
{
    sim::MachineState& machine = sim::Machine();
    machine.scheduler.Wait([] { return "a pause"; }, machine.DeadlineAfter(timeMs));
}

} // namespace platform
