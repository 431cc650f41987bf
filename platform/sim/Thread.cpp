#include "platform/Thread.h"

#include "platform/Clock.h"
#include "platform/LastError.h"
#include "platform/sim/MachineState.h"

#include <algorithm>
#include <system_error>

namespace platform {

class CThread {
public:
    std::shared_ptr<sim::SimThread> m_thread;
};

ThreadPtr StartThread(ThreadEntry entry, void* argument)
{
    if (sim::FailsByFault(sim::Call::kStartThread)) {
        return nullptr;
    }
    const sim::ProcessIdentity process = sim::CScheduler::Self().context.process;
    try {
        auto thread = std::make_shared<CThread>();
        thread->m_thread = sim::Machine().StartThread(process, [entry, argument] { entry(argument); });
        return thread;
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
    if (thread->m_thread->hasEnded) {
        return WAIT_OBJECT_0;
    }
    if (timeoutMs == 0) {
        return WAIT_TIMEOUT;
    }
    return sim::Machine().scheduler.WaitForEnd(*thread->m_thread, sim::Machine().DeadlineAfter(timeoutMs));
}

void InterruptWait(const ThreadPtr& thread)
{
    if (thread == nullptr) {
        return;
    }
    sim::SimThread& waiter = *thread->m_thread;
    const std::vector<sim::SimThread*> waiting = sim::Machine().scheduler.Waiting();
    const bool waits = std::find(waiting.begin(), waiting.end(), &waiter) != waiting.end();
    if (waits && waiter.objectWait != nullptr && waiter.objectWait->alertable) {
        sim::Machine().scheduler.Wake(waiter, WAIT_IO_COMPLETION);
    } else {
        waiter.isInterrupted = true;
    }
}

DWORD CurrentProcessIdentifier() { return sim::CScheduler::Self().context.process.processId; }

DWORD CurrentThreadIdentifier() { return sim::CScheduler::Self().context.threadId; }

void EndProcess(int exitCode)
{
    if (CurrentProcessIdentifier() == sim::ProcessIdentity().processId) {
        sim::EndProgram("the process that made it is to end");
    }
    throw sim::ProcessEnd{exitCode};
}

} // namespace platform

namespace platform::sim {

std::shared_ptr<SimThread> MachineState::StartThread(const ProcessIdentity& process, std::function<void()> body)
{
    auto thread = scheduler.Start(process, [this, body = std::move(body)]() mutable {
        body();
        body = nullptr; // what it holds goes with the process, not later
        EndThread(CScheduler::Self());
    });
    ++processes[process.processId].threads;
    if (observer != nullptr) {
        observer->OnThreadStarted(CallingThread(), CallerOf(thread->context));
    }
    return thread;
}

void MachineState::EndThread(const SimThread& thread)
{
    const CMachineMemory memory;
    timers.DisarmAllOf(thread);
    objects.AbandonAllOf(thread.context);
    if (observer != nullptr) {
        observer->OnThreadEnded(CallerOf(thread.context));
    }
    windows.DestroyAllOf(thread);
    const DWORD processId = thread.context.process.processId;
    if (--processes.at(processId).threads == 0) {
        EndProcess(processId);
    }
}

DWORD CMachine::StartProcess(unsigned session, std::function<int()> entry, std::vector<CString> arguments)
{
    const DWORD processId = m_state->nextProcessId++;
    SimProcess& process = m_state->processes[processId]; // elements of a map stay where they are
    process.arguments = std::move(arguments);
    process.startTime = ReadTime();
    m_state->StartThread({processId, session}, [&exitCode = process.exitCode, entry = std::move(entry)] {
        try {
            exitCode = entry();
        } catch (const ProcessEnd& end) {
            exitCode = end.exitCode;
        }
    });
    return processId;
}

std::optional<int> CMachine::ExitCodeOf(DWORD processId) const
{
    const auto process = m_state->processes.find(processId);
    if (process == m_state->processes.end()) {
        EndProgram("there is no process " + std::to_string(processId));
    }
    return process->second.threads > 0 ? std::nullopt : std::optional(process->second.exitCode);
}

} // namespace platform::sim
