#include "platform/Thread.h"

#include "platform/LastError.h"
#include "platform/portable/RealDom.h"
#include "platform/sim/MachineState.h"

#include <system_error>

namespace platform {

class CThread {
public:
    explicit CThread(std::shared_ptr<const sim::SimThread> thread) : m_thread(std::move(thread)) {}
    const sim::SimThread& Thread() const { return *m_thread; }

private:
    std::shared_ptr<const sim::SimThread> m_thread;
};

ThreadPtr StartThread(ThreadEntry entry, void* argument)
{
    if (sim::FailsByFault(sim::Call::kStartThread)) {
        return nullptr;
    }
    sim::MachineState& machine = sim::Machine();
    try {
        return std::make_shared<CThread>(machine.scheduler.Start([&machine, entry, argument] {
            entry(argument);
            const sim::SimThread& self = sim::CScheduler::Self();
            machine.timers.DisarmAllOf(self);
            machine.objects.AbandonAllOf(self.context);
        }));
    } catch (const std::system_error&) {
        SetLastErrorCode(ERROR_OUTOFMEMORY);
        return nullptr;
    }
}

DWORD WaitForThread(const ThreadPtr& thread, DWORD timeoutMs)
{
    if (thread == nullptr) {
        SetLastErrorCode(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    if (thread->Thread().hasEnded) {
        return WAIT_OBJECT_0;
    }
    if (timeoutMs == 0) {
        return WAIT_TIMEOUT;
    }
    return sim::Machine().scheduler.WaitForEnd(thread->Thread(), sim::Machine().DeadlineAfter(timeoutMs));
}

DWORD CurrentProcessIdentifier() { return sim::CScheduler::Self().context.processId; }

DWORD CurrentThreadIdentifier() { return sim::CScheduler::Self().context.threadId; }

void EnterApartment()
{
    ++sim::Machine().apartmentBalance;
    real_dom::EnterApartment();
}

void LeaveApartment()
{
    --sim::Machine().apartmentBalance;
    real_dom::LeaveApartment();
}

} // namespace platform
