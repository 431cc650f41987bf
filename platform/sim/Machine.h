// The simulated machine: the platform of tests. Time passes only when every thread waits, faults come when asked for,
// and the same test runs the same way every time.
//
// Threads are real, but only one runs at a time. It runs until it waits (Sync.h, Thread.h, CriticalSection.h, HTTP
// latency); then the next ready one goes on, in the order in which they became ready. When all wait, the clock moves to
// the earliest time at which one has to go on. When all wait and none ever has to, the program reports the deadlock and
// ends with a failure.
#pragma once

#include "platform/Settings.h"
#include "platform/Types.h"
#include "testing/HttpAnswer.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace platform::sim {

// Platform calls that can be made to fail.
enum class Call {
    kTimeToLocalCalendar,
    kLocalCalendarToTime,
    kCalendarToFileTime,
    kLocalToUtcFileTime,
    kQuerySettingsValue,
    kStoreSettingsValue,
    kRemoveSettingsValue,
    kOutputDebugText, // throws std::bad_alloc
    kStartThread,
    kCreateNamedMutex,
    kCreateNamedMutexThrows, // std::bad_alloc
    kOpenNamedMutex,
    kCreateNamedEvent,
    kOpenNamedEvent,
    kPulseNamedEventMisses, // TRUE, but releases no thread
    kReleaseOwnedMutex,
    kWaitForOne,
    kWaitForAny,
    kMakeTimer,
    kArmTimer,
    kDisarmTimer,
    kInitializeDescriptor,
    kSetNullDacl,
    kOpenHttpSession,
    kOpenHttpConnection,        // null
    kOpenHttpConnectionThrows,  // CInternetException
    kOpenHttpRequest,           // null
    kOpenHttpRequestThrows,     // CInternetException
    kSendHttpRequest,           // FALSE
    kSendHttpRequestThrows,     // CInternetException
    kQueryHttpStatusCode,       // FALSE
    kQueryHttpStatusCodeThrows, // CInternetException
    kReadHttpBody,              // CInternetException
    kCloseHttpSession,          // counted, cannot fail
    kCreateDomDocument,
    kLoadDomText,
    kLoadDomTextThrows, // std::bad_alloc
    kLoadDomFile,
    kLoadDomFileThrows, // std::bad_alloc
    kGetDomDocumentElement,
    kGetDomChildNodes,
    kGetDomItem,
    kGetDomLength,
    kGetDomAttributes,
    kGetDomNodeName, // also of GetDomTagName
    kGetDomText,
    kGetDomNamedItem,
    kGetDomNodeValue,
    kGetCommonAppDataFolder,
    kMakeFolder,
    kOpenForReplace,
    kWriteFileBytes, // CFileException, nothing written
    kOpenFolderWatch,
    kWaitForFolderChange,
    kOpenTraceChannel,
    kReadTraceText,
    kInitializeControls,
    kRegisterDialogClass,
    kCreateDialogWindow,
    kRegisterSessionNotices,
    kPostToWindow,
    kFindProgramOfWindow,
    kStartProgram,
    kCount,
};

// A file or folder of the simulated disk.
struct SimFile {
    bool isFolder = false;
    bool nullDacl = false;                // made with a null DACL
    std::vector<BYTE> bytes = {};         // content
    std::vector<std::size_t> writes = {}; // sizes of the writes since the last open
    bool heldOpen = false;                // another process has it open: cannot be opened for writing
    bool readOnly = false;                // cannot be opened for writing
};

// A window as tests see it.
struct SimWindow {
    DWORD processId = 0;
    WORD templateNumber = 0;
    bool takesInput = true;
    bool getsSessionNotices = false;
};

// Decides for each call, when no other fault is due, whether it is to fail, and with which code. Asked on the calling
// thread.
using FaultPlan = std::function<std::optional<DWORD>(Call call)>;

class CObserver;
struct MachineState;

// The machine. One exists at a time; its constructor makes it the one that the platform functions work on, its
// destructor checks that no thread but the caller's is left running. All members may be called from any of its threads.
// It starts at 2012-07-02 13:00:00.000 local time, UTC+9, on line (LAN), without settings, with an empty disk whose
// common application-data folder is "C:\ProgramData" with its separator as kPathSeparator ("C:/ProgramData" off
// Windows), and a web that answers every request with 404 and no body.
//
// Documents are real: the DOM is the system's own, and LoadDomFile reads the real disk.
class CMachine {
public:
    CMachine();
    ~CMachine();
    CMachine(const CMachine&) = delete;
    CMachine& operator=(const CMachine&) = delete;

    // The machine that exists now; ends the program when there is none.
    static CMachine& Current();

    // Sets the wall clock; time that passes is counted from there. Relative timers are not moved, absolute ones are.
    void SetLocalClock(const SYSTEMTIME& local);
    // Local time minus UTC, in minutes, at all times; planned changes are forgotten. The wall clock's UTC value stays.
    void SetUtcOffset(int minutes);
    // Changes the offset to this from a time on (seconds since 1970-01-01 UTC). Time conversions use the offset of the
    // time that they convert, except LocalToUtcFileTime, which uses the present one.
    void PlanUtcOffset(std::int64_t time, int minutes);
    // Lets the wall clock go on by this much while nothing runs and no virtual time passes, as when the machine is
    // suspended: relative timers do not count it, absolute ones do.
    void PassSuspended(std::int64_t timeMs);
    // Milliseconds passed since the machine was made.
    std::int64_t ElapsedMs() const;

    // Lets the other threads run until all of them wait; no time passes.
    void RunUntilIdle();
    // Lets the other threads run and timeMs milliseconds pass.
    void RunFor(std::int64_t timeMs);

    // Starts a process in a session: a first thread that runs entry. Returns its identifier. It ends with the last of
    // its threads; the identifiers of ended ones are not used again. The thread that made the machine is a process,
    // too, in session 1 and without arguments, which cannot be ended. arguments: its command line, without the
    // program's name.
    DWORD StartProcess(unsigned session, std::function<int()> entry, std::vector<CString> arguments = {});
    // What the entry of a process returned or EndProcess was given; empty while any of its threads runs.
    std::optional<int> ExitCodeOf(DWORD processId) const;
    // Puts a program where FindProgram finds it by this name; entry: what its processes run, in the session of the one
    // that starts it, null: there is no such program any more.
    void PutProgram(const CString& name, std::function<int()> entry);

    // Threads that have not ended, and ended ones that still take memory, which the next start of a thread takes back.
    std::size_t ThreadCount() const;

    // Settings store. session: whose user's hive the per-user one is.
    void PutSetting(Hive hive, const CString& keyPath, const CString& valueName, const SettingsValue& value,
                    unsigned session = 1);
    void PutDword(Hive hive, const CString& keyPath, const CString& valueName, DWORD value, unsigned session = 1);
    void PutText(Hive hive, const CString& keyPath, const CString& valueName, const CString& text,
                 unsigned session = 1);
    void RemoveSetting(Hive hive, const CString& keyPath, const CString& valueName, unsigned session = 1);

    // Every debugger output so far, one element a call of OutputDebugText, while they are kept (which they are at
    // first).
    void KeepDebugLines(bool keep);
    std::vector<CString> DebugLines() const;
    void ClearDebugLines();

    // Makes the nth call from now (1: the next) fail with this code, once. Codes are last-error codes; for the DOM
    // they are COM statuses. Several faults of one call may be set.
    void FailCall(Call call, unsigned nth, DWORD code);
    // Makes every call fail until ClearFaults.
    void FailEvery(Call call, DWORD code);
    // Asks plan at every call; null: nobody.
    void SetFaultPlan(FaultPlan plan);
    // No call fails any more; the plan goes, too.
    void ClearFaults();
    // Calls made so far, failed ones included.
    unsigned CallCount(Call call) const;

    // The web. The handler runs on the requesting thread and may change the machine.
    void SetHttpHandler(testing_support::HttpHandler handler);
    void SetConnectedState(BOOL result, DWORD flags);
    // The requests that reached the web so far, while they are kept (which they are at first); a refused one did not.
    void KeepHttpExchanges(bool keep);
    std::vector<testing_support::HttpExchange> HttpExchanges() const;
    // Connections and requests that were opened and are not closed yet.
    std::size_t OpenHttpHandleCount() const;

    // The disk. Null when there is no such file or folder; valid until it is replaced or removed.
    const SimFile* FindFile(const CString& path) const;
    // All files, without the folders, sorted.
    std::vector<CString> FilePaths() const;
    // Puts a file or folder in the place of what has this path, and makes the folders that lead there.
    void PutFile(const CString& path, SimFile file);
    // Removes a file, or a folder with what is in it.
    void RemoveFile(const CString& path);
    // The common application-data folder from now on, made when it is next asked for.
    void SetCommonAppDataFolder(const CString& path);
    // Writes beyond this many bytes in total fail with error 112; a fault mid-record writes what still fits.
    void SetFreeBytes(std::size_t bytes);

    // Acts as another session's copy of the program: takes (waiting until it is free, making it when there is none),
    // and gives back or abandons, a mutex by name; signals an event by name (FALSE when nobody has it).
    // session: in which the other process runs.
    void OtherProcessAcquiresMutex(const CString& name, unsigned session = 1);
    void OtherProcessReleasesMutex(const CString& name, unsigned session = 1);
    void OtherProcessAbandonsMutex(const CString& name, unsigned session = 1);
    BOOL OtherProcessSetsEvent(const CString& name, unsigned session = 1);
    // Whether any thread or process owns the mutex.
    bool IsMutexOwned(const CString& name, unsigned session = 1) const;
    // Named objects that exist now, and whether one was made with a null DACL. A name that begins with "Global\" is the
    // whole machine's, every other one its session's.
    bool NamedObjectExists(const CString& name, unsigned session = 1) const;
    bool NamedObjectHasNullDacl(const CString& name, unsigned session = 1) const;
    std::size_t NamedObjectCount() const;
    // Timers that are armed now.
    unsigned ArmedTimerCount() const;

    // The session's window of a class, and how many windows the machine has.
    bool WindowExists(const CString& className, unsigned session = 1) const;
    std::optional<SimWindow> WindowOf(const CString& className, unsigned session = 1) const;
    std::size_t WindowCount() const;
    // Another process of the session posts a message to its window of a class; FALSE when there is none.
    BOOL OtherProcessPosts(const CString& className, UINT message, WPARAM wParam, LPARAM lParam, unsigned session = 1);
    // The system tells every window of power, and of a session those of its windows that asked for it.
    void NotifyPower(WPARAM event);
    void NotifySession(unsigned session, WPARAM code);

    // What shows standard output. columns: 0 for no terminal, which is so at first.
    void SetTerminal(int columns, bool allowsColour, bool showsUnicode = true);

    // Tells observer of what happens from now on; null: nobody. It must outlive the machine or be replaced before.
    void SetObserver(CObserver* observer);

    // Calls of EnterApartment minus calls of LeaveApartment, over all threads.
    int ApartmentBalance() const;

private:
    friend MachineState& Machine();
    std::unique_ptr<MachineState> m_state;
};

// Called with every debugger output, for collecting what a test run writes. Null: nobody. Set before threads start.
using DebugTap = void (*)(const CString& text);
void SetDebugTap(DebugTap tap);

} // namespace platform::sim
