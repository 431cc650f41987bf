// What the simulated machine consists of.
#pragma once

#include "platform/Files.h"
#include "platform/portable/FileTime.h"
#include "platform/sim/Faults.h"
#include "platform/sim/KernelObjects.h"
#include "platform/sim/Machine.h"
#include "platform/sim/Scheduler.h"
#include "platform/sim/Timers.h"
#include "platform/sim/WindowTable.h"
#include "platform/TraceChannel.h"

#include <array>
#include <deque>
#include <map>
#include <tuple>

namespace platform::sim {

// A file and whether this program has it open for writing.
struct DiskEntry {
    SimFile file;
    bool isOpen = false;
    std::int64_t lastWrite = 0; // UTC, on the FILETIME scale
};

// What a watch of a folder has to know.
struct SimFolderWatch {
    CString folder;
    bool changed = false;        // since it last told so
    SimThread* waiter = nullptr; // the thread that waits for a change
};

// What a channel of trace texts has to know.
struct SimTraceChannel {
    std::deque<TraceText> texts = {}; // not read yet
    SimThread* waiter = nullptr;      // the thread that waits for one
};

// A process.
struct SimProcess {
    unsigned threads = 0; // that have not ended
    int exitCode = 0;     // once its first thread has ended
    std::vector<CString> arguments = {};
    std::int64_t startTime = -1;             // time value
    std::vector<SimThread*> endWaiters = {}; // threads that wait for its end
};

// Thrown by EndProcess, to end the first thread of a process.
struct ProcessEnd {
    int exitCode;
};

// Everything is for the thread that holds the scheduler's baton.
struct MachineState {
    MachineState();

    // The wall clock, in UTC and locally, on the FILETIME scale.
    std::int64_t UtcNow() const { return utcAtStart + scheduler.Now(); }
    std::int64_t LocalNow() const { return UtcNow() + PresentUtcOffset(); }
    // Local time minus UTC, in units of the FILETIME scale: at a UTC time, and now.
    std::int64_t UtcOffsetAt(std::int64_t utc) const;
    std::int64_t PresentUtcOffset() const { return UtcOffsetAt(UtcNow()); }
    // The UTC time of a local one: the earlier one of two that an hour set back gives, and for a time in an hour that
    // is left out the one that the offset before it gives.
    std::int64_t UtcOfLocal(std::int64_t local) const;

    // Starts a thread of a process, and clears up after the calling one, which is to end.
    std::shared_ptr<SimThread> StartThread(const ProcessIdentity& process, std::function<void()> body);
    void EndThread(const SimThread& thread);
    // Once the last thread of a process has ended.
    void EndProcess(DWORD processId);

    // The virtual time at which a wait that begins now and lasts at most timeoutMs ends; kNever for INFINITE.
    std::int64_t DeadlineAfter(DWORD timeoutMs) const;

    // The folder of a path: empty for one without a separator.
    static CString FolderOf(const CString& path);
    // Whether there is such a folder. The empty path and a path without a separator, such as "C:", stand for a root.
    bool FolderExists(const CString& path) const;

    // Tells the watches that a file in a folder, or a folder itself, has changed.
    void TellFolderWatches(const CString& path);

    // Passes a text on to whoever follows the debugger output.
    void TellTraceChannels(DWORD processId, const CString& text);

    std::int64_t utcAtStart = 0; // the UTC wall clock at virtual time 0
    int utcOffsetMinutes = 9 * 60;
    std::map<std::int64_t, int> plannedUtcOffsets = {}; // minutes, by the UTC time from which they hold
    CObserver* observer = nullptr;
    CScheduler scheduler;
    CTimers timers;
    CKernelObjects objects;
    CWindowTable windows;
    CFaults faults;

    std::map<DWORD, SimProcess> processes = {}; // all there ever were
    DWORD nextProcessId = 3000;
    std::map<CString, std::function<int()>> programs = {}; // by path

    using SettingKey = std::tuple<Hive, unsigned, CString, CString>; // session (0: machine-wide), names in lower case
    std::map<SettingKey, SettingsValue> settings = {};
    bool keepsDebugLines = true;
    std::vector<CString> debugLines = {};
    std::vector<std::weak_ptr<SimTraceChannel>> traceChannels = {};
    int terminalColumns = 0; // 0: standard output is no terminal
    bool terminalAllowsColour = false;
    bool terminalShowsUnicode = true;
    int apartmentBalance = 0;

    std::map<CString, std::shared_ptr<DiskEntry>> disk = {};
    CString commonAppDataFolder = CString(L"C:") + kPathSeparator + L"ProgramData";
    std::size_t freeBytes = 0;
    std::vector<std::weak_ptr<SimFolderWatch>> folderWatches = {};

    testing_support::HttpHandler httpHandler = {};
    std::vector<testing_support::HttpExchange> httpExchanges = {};
    std::vector<std::weak_ptr<void>> httpHandles = {}; // of every connection and request opened so far
    unsigned httpConnections = 0;                      // made so far
    bool keepsHttpExchanges = true;
    BOOL connectedResult = TRUE;
    DWORD connectedFlags = 0;

    ThreadContext otherProcess = {}; // the owner of what OtherProcessAcquiresMutex took
    std::map<ObjectName, WaitHandle> otherHandles = {};
};

// Where a program of this name lies.
CString ProgramPath(const CString& name);

// The current machine's state; ends the program when there is no machine.
MachineState& Machine();

// Counts a call. Whether it has to fail; then the last error is set.
bool FailsByFault(Call call);

// The calling thread, as observers see it.
Caller CallingThread();

// The key under which a setting is stored. session: whose user it is; does not matter for the machine-wide hive.
MachineState::SettingKey SettingKeyOf(Hive hive, unsigned session, const CString& keyPath, const CString& valueName);

} // namespace platform::sim
