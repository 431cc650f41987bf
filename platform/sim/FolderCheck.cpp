#include "platform/FolderCheck.h"

#include "platform/sim/MachineState.h"
#include "platform/Text.h"

namespace platform {

std::vector<CString> FindUnusableFolders(const CString& dataFolder, const wchar_t* mutexName)
{
    const sim::MachineState& machine = sim::Machine();
    std::vector<CString> lines;
    const auto folder = machine.disk.find(dataFolder);
    const bool isUnusable =
        folder != machine.disk.end() && (!folder->second->file.isFolder || folder->second->file.readOnly);
    if (dataFolder.empty()) {
        lines.emplace_back(L"cannot store data: the common application-data folder is unknown");
    } else if (isUnusable) {
        lines.push_back(FormatText(L"cannot write to the data folder %s (error %u)", dataFolder, ERROR_ACCESS_DENIED));
    }
    const sim::KernelObjectPtr mutex =
        machine.objects.Find({sim::CScheduler::Self().context.process.session, mutexName});
    if (mutex != nullptr && !mutex->isMutex) {
        lines.push_back(FormatText(L"cannot use the lock %s (error %u)", mutexName, ERROR_INVALID_HANDLE));
    }
    return lines;
}

void ReportUnusableFolders(const CString&, const wchar_t*) {}

} // namespace platform
