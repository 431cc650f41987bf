// What the simulated machine consists of.
#pragma once

#include "platform/Files.h"
#include "platform/portable/FileTime.h"
#include "platform/sim/Faults.h"
#include "platform/sim/KernelObjects.h"
#include "platform/sim/Machine.h"
#include "platform/sim/Scheduler.h"
#include "platform/sim/Timers.h"

#include <array>
#include <map>
#include <tuple>

namespace platform::sim {

// A file and whether this program has it open for writing.
struct DiskEntry {
    SimFile file;
    bool isOpen = false;
};

// Everything is for the thread that holds the scheduler's baton.
struct MachineState {
    MachineState();

    // The wall clock, in UTC and locally, on the FILETIME scale.
    std::int64_t UtcNow() const { return utcAtStart + scheduler.Now(); }
    std::int64_t LocalNow() const { return UtcNow() + UtcOffsetUnits(); }
    std::int64_t UtcOffsetUnits() const { return std::int64_t{utcOffsetMinutes} * 60 * portable::kUnitsPerSecond; }

    // The virtual time at which a wait that begins now and lasts at most timeoutMs ends; kNever for INFINITE.
    std::int64_t DeadlineAfter(DWORD timeoutMs) const;

    // The folder of a path: empty for one without a separator.
    static CString FolderOf(const CString& path);
    // Whether there is such a folder. The empty path and a path without a separator, such as "C:", stand for a root.
    bool FolderExists(const CString& path) const;

    std::int64_t utcAtStart = 0; // the UTC wall clock at virtual time 0
    int utcOffsetMinutes = 9 * 60;
    CScheduler scheduler;
    CTimers timers;
    CKernelObjects objects;
    CFaults faults;

    using SettingKey = std::tuple<Hive, CString, CString>; // names in lower case
    std::map<SettingKey, SettingsValue> settings = {};
    std::vector<CString> debugLines = {};
    int apartmentBalance = 0;

    std::map<CString, std::shared_ptr<DiskEntry>> disk = {};
    CString commonAppDataFolder = CString(L"C:") + kPathSeparator + L"ProgramData";
    std::size_t freeBytes = 0;

    HttpHandler httpHandler = {};
    std::vector<HttpExchange> httpExchanges = {};
    unsigned httpConnections = 0;                      // made so far
    std::vector<std::weak_ptr<void>> httpHandles = {}; // of every connection and request opened so far
    BOOL connectedResult = TRUE;
    DWORD connectedFlags = 0;

    ThreadContext otherProcess = {}; // the owner of what OtherProcessAcquiresMutex took
    std::map<CString, WaitHandle> otherHandles = {};
};

// The current machine's state; ends the program when there is no machine.
MachineState& Machine();

// Counts a call. Whether it has to fail; then the last error is set.
bool FailsByFault(Call call);

// The key under which a setting is stored.
MachineState::SettingKey SettingKeyOf(Hive hive, const CString& keyPath, const CString& valueName);

} // namespace platform::sim
