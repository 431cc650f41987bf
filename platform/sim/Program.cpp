#include "platform/Program.h"

#include "platform/LastError.h"
#include "platform/sim/MachineState.h"

#include <algorithm>

namespace platform {

using sim::Call;

class CProgram {
public:
    DWORD m_id = 0;
};

namespace {

sim::SimProcess& ProcessOf(const CProgram& program) { return sim::Machine().processes.at(program.m_id); }

} // namespace

ProgramPtr FindProgramOfWindow(const wchar_t* className)
{
    if (sim::FailsByFault(Call::kFindProgramOfWindow)) {
        return nullptr;
    }
    const unsigned session = sim::CScheduler::Self().context.process.session;
    const WindowPtr window = sim::Machine().windows.Find(session, className);
    if (window == nullptr) {
        SetLastErrorCode(ERROR_INVALID_WINDOW_HANDLE);
        return nullptr;
    }
    return std::make_shared<CProgram>(CProgram{window->process.processId});
}

DWORD ProcessIdentifierOf(const ProgramPtr& program) { return program->m_id; }

std::int64_t StartTimeOf(const ProgramPtr& program) { return ProcessOf(*program).startTime; }

DWORD WaitForProgramEnd(const ProgramPtr& program, DWORD timeoutMs)
{
    if (program == nullptr) {
        SetLastErrorCode(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    sim::SimProcess& process = ProcessOf(*program);
    if (process.threads > 0 && timeoutMs != 0) {
        process.endWaiters.push_back(&sim::CScheduler::Self());
        sim::Machine().scheduler.Wait([] { return std::string("the end of a process"); },
                                      sim::Machine().DeadlineAfter(timeoutMs));
        std::erase(process.endWaiters, &sim::CScheduler::Self());
    }
    return process.threads > 0 ? WAIT_TIMEOUT : WAIT_OBJECT_0;
}

CString FindProgram(const wchar_t* name)
{
    const CString path = sim::ProgramPath(name);
    return sim::Machine().programs.contains(path) ? path : CString();
}

ProgramPtr StartProgram(const CString& path)
{
    if (sim::FailsByFault(Call::kStartProgram)) {
        return nullptr;
    }
    const auto program = sim::Machine().programs.find(path);
    if (program == sim::Machine().programs.end()) {
        SetLastErrorCode(ERROR_FILE_NOT_FOUND);
        return nullptr;
    }
    const unsigned session = sim::CScheduler::Self().context.process.session;
    return std::make_shared<CProgram>(CProgram{sim::CMachine::Current().StartProcess(session, program->second)});
}

} // namespace platform

namespace platform::sim {

CString ProgramPath(const CString& name) { return CString(L"C:") + kPathSeparator + name; }

void CMachine::PutProgram(const CString& name, std::function<int()> entry)
{
    if (entry) {
        m_state->programs[ProgramPath(name)] = std::move(entry);
    } else {
        m_state->programs.erase(ProgramPath(name));
    }
}

void MachineState::EndProcess(DWORD processId)
{
    // A waiter whose time is up does not wait any more, although it may not have run yet.
    const std::vector<SimThread*> waiting = scheduler.Waiting();
    for (SimThread* const waiter : processes.at(processId).endWaiters) {
        if (std::ranges::find(waiting, waiter) != waiting.end()) {
            scheduler.Wake(*waiter, WAIT_OBJECT_0);
        }
    }
    windows.ForgetClassesOf(processId);
}

} // namespace platform::sim
