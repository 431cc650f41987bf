#include "platform/FolderWatch.h"

#include "platform/Files.h"
#include "platform/LastError.h"
#include "platform/sim/MachineState.h"

#include <algorithm>
#include <utility>

namespace platform {

using sim::Call;

class CFolderWatch : public sim::SimFolderWatch {};

FolderWatchPtr OpenFolderWatch(const CString& folder)
{
    if (sim::FailsByFault(Call::kOpenFolderWatch)) {
        return nullptr;
    }
    sim::MachineState& machine = sim::Machine();
    const bool canAppear = !PathExists(folder) && machine.FolderExists(sim::MachineState::FolderOf(folder));
    if (!machine.FolderExists(folder) && !canAppear) {
        SetLastErrorCode(ERROR_PATH_NOT_FOUND);
        return nullptr;
    }
    auto watch = std::make_shared<CFolderWatch>();
    watch->folder = folder;
    std::erase_if(machine.folderWatches, [](const auto& known) { return known.expired(); });
    machine.folderWatches.push_back(watch);
    return watch;
}

DWORD WaitForFolderChange(const FolderWatchPtr& watch, DWORD timeoutMs)
{
    if (sim::FailsByFault(Call::kWaitForFolderChange)) {
        return WAIT_FAILED;
    }
    if (watch == nullptr) {
        SetLastErrorCode(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    if (!watch->changed && timeoutMs != 0) {
        watch->waiter = &sim::CScheduler::Self();
        sim::Machine().scheduler.Wait([] { return "a change in a folder"; }, sim::Machine().DeadlineAfter(timeoutMs));
        watch->waiter = nullptr;
    }
    return std::exchange(watch->changed, false) ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

std::intptr_t EventSourceOf(const FolderWatchPtr&) { return -1; }

} // namespace platform

namespace platform::sim {

void MachineState::TellFolderWatches(const CString& path)
{
    for (const auto& known : folderWatches) {
        const std::shared_ptr<SimFolderWatch> watch = known.lock();
        if (watch == nullptr || (watch->folder != path && watch->folder != FolderOf(path))) {
            continue;
        }
        watch->changed = true;
        // A waiter whose time is up does not wait any more, although it may not have run yet.
        const std::vector<SimThread*> waiting = scheduler.Waiting();
        if (std::ranges::find(waiting, watch->waiter) != waiting.end()) {
            scheduler.Wake(*watch->waiter, WAIT_OBJECT_0);
        }
    }
}

} // namespace platform::sim
