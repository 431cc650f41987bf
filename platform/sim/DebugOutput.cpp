#include "platform/DebugOutput.h"

#include "platform/sim/MachineState.h"

#include <new>

namespace platform {

namespace {

sim::DebugTap g_tap = nullptr;

} // namespace

namespace sim {

void SetDebugTap(DebugTap tap) { g_tap = tap; }

} // namespace sim

void OutputDebugText(const CString& text)
{
    if (sim::Machine().faults.Take(sim::Call::kOutputDebugText)) {
        throw std::bad_alloc();
    }
    sim::MachineState& machine = sim::Machine();
    if (machine.keepsDebugLines) {
        machine.debugLines.push_back(text);
    }
    machine.TellTraceChannels(sim::CallingThread().processId, text);
    if (machine.observer != nullptr) {
        machine.observer->OnDebugLine(sim::CallingThread(), text);
    }
    if (g_tap != nullptr) {
        g_tap(text);
    }
}

} // namespace platform
