#include "platform/Timer.h"

#include "platform/LastError.h"
#include "platform/sim/MachineState.h"

namespace platform {

using sim::Call;

namespace {

bool IsNull(const TimerPtr& timer)
{
    if (timer == nullptr) {
        SetLastErrorCode(ERROR_INVALID_HANDLE);
    }
    return timer == nullptr;
}

} // namespace

TimerPtr MakeTimer() { return sim::FailsByFault(Call::kMakeTimer) ? nullptr : sim::Machine().timers.Make(); }

BOOL ArmTimer(const TimerPtr& timer, const LARGE_INTEGER* dueTime, TimerRoutine routine, void* argument)
{
    if (sim::FailsByFault(Call::kArmTimer) || IsNull(timer)) {
        return FALSE;
    }
    sim::Machine().timers.Arm(*timer, dueTime->QuadPart, routine, argument);
    return TRUE;
}

BOOL DisarmTimer(const TimerPtr& timer)
{
    if (sim::FailsByFault(Call::kDisarmTimer) || IsNull(timer)) {
        return FALSE;
    }
    sim::Machine().timers.Disarm(*timer);
    return TRUE;
}

} // namespace platform
