// The independent model of the program. It sees what the machine sees - threads, settings queries, mutexes, requests,
// files - and what the simulation does to it, and says at once when the program does what it must not, or has not done
// what it must have.
#pragma once

#include "platform/sim/Machine.h"
#include "platform/sim/Observer.h"
#include "testing/simulation/Due.h"
#include "testing/simulation/Reports.h"
#include "testing/simulation/RunLog.h"

#include <deque>
#include <functional>
#include <list>
#include <map>
#include <string>

namespace simulation {

// A broken promise.
struct Violation {
    std::int64_t nowMs = 0;
    std::string text = {};
};

// Everything runs on the thread that runs on the machine.
class CChecker : public platform::sim::CObserver {
public:
    using Caller = platform::sim::Caller;
    using Answerer = std::function<Reply(const Kind& kind, const SYSTEMTIME& day, const CZone& zone)>;

    // utcNow: the wall clock at virtual time 0. answer: draws what the report API answers.
    CChecker(const platform::sim::CMachine& machine, CRunLog& log, CZone zone, UtcMs utcNow, Answerer answer);

    // --- What the simulation does. Said before it is done, unless told otherwise.

    // Starts a copy of the program that is to run, as the machine's process; said after StartProcess, before it runs.
    void OnProgramStarted(DWORD processId, unsigned session);
    // The same for one that is to end at once: a second copy, or one with /Exit.
    void OnShortCopyStarted(DWORD processId, unsigned session);
    // A process's entry is about to return.
    void OnEntryReturns(DWORD processId);
    // Posts that the session's copy is to start or stop updating, or to quit.
    void OnStartPosted(DWORD processId);
    void OnStopPosted(DWORD processId);
    void OnQuitPosted(DWORD processId);
    // The clock has moved by this much, beside the time that passed.
    void OnClockMoved(std::int64_t byMs);
    void OnConnected(bool isConnected) { m_isConnected = isConnected; }
    // A reader holds this file; empty: none.
    void OnFileHeld(const CString& path) { m_heldPath = path; }
    void OnDiskLimited(bool isLimited) { m_diskIsLimited = isLimited; }
    // Another process of the session sets the update event.
    void OnManualUpdate(unsigned session);
    // A call of the program fails, on the calling thread; said by the machine's plan of faults.
    void OnFault(platform::sim::Call call);

    // The web's answer to a request.
    testing_support::HttpAnswer Answer(const testing_support::HttpExchange& exchange);

    // --- What it is asked.

    // Nothing of what must have happened by now is missing. While all threads wait.
    void CheckDeadlines();
    // Nothing is left of the programs, which have all been told to quit.
    void CheckLeftovers();
    // The files of the last passes are as they must be: called when every session has made a pass without faults since
    // firstPass (a count of passes).
    void CheckConverged(unsigned firstPass);
    // The session has made a pass to its end since there were this many.
    void CheckPassSince(unsigned session, unsigned passes);

    // The first broken promise, if there is one.
    const std::optional<Violation>& FirstViolation() const { return m_violation; }
    // The session's copy that runs, as far as it has not been told to quit; 0 when there is none.
    DWORD RunningCopy(unsigned session) const;
    // Whether a process of the session has not returned yet.
    bool HasCopy(unsigned session) const;
    // Whether the process gets notices of its session.
    bool GetsSessionNotices(DWORD processId) const;
    bool IsProgram(DWORD processId) const { return m_programs.contains(processId); }
    // Whether a thread is a program's first one.
    bool IsMainThread(const Caller& caller) const;
    // Passes that were made to their end.
    unsigned PassCount() const { return m_passes; }
    std::uint64_t RequestCount() const { return m_requests; }

    // --- What it sees.

    void OnThreadStarted(const Caller& starter, const Caller& started) override;
    void OnThreadEnded(const Caller& thread) override;
    void OnObjectMade(unsigned session, const CString& name) override;
    void OnEventPulsed(unsigned session, const CString& name, const Caller& caller) override;
    void OnSettingQueried(const Caller& caller, platform::Hive hive, const CString& keyPath, const CString& valueName,
                          const platform::SettingsValue* value) override;
    void OnMutexAcquired(unsigned session, const CString& name, const Caller& owner) override;
    void OnMutexReleased(unsigned session, const CString& name, const Caller& owner, bool abandoned) override;
    void OnFileOpened(const Caller& caller, const CString& path) override;
    void OnFileClosed(const Caller& caller, const CString& path, const platform::sim::SimFile& file) override;
    void OnDebugLine(const Caller& caller, const CString& text) override;

private:
    // A message that changes whether a program updates.
    struct Order {
        enum class What { kStart, kStop, kQuit };
        What what;
        std::int64_t postedMs;
    };

    struct Program {
        DWORD processId = 0;
        unsigned session = 0;
        DWORD mainThread = 0;
        bool isStarted = false; // its updater
        bool initialUpdateDone = false;
        bool getsSessionNotices = true;
        bool isQuitting = false;
        bool hasReturned = false;
        std::deque<Order> orders = {}; // not carried out yet
        std::int64_t freeMs = 0;       // from when its first thread can handle the next message, at the latest
        DWORD worker = 0;              // of the latest start
    };

    // Where a worker is.
    enum class At {
        kStart,    // has decided nothing yet
        kTurn,     // waits for the update mutex
        kPass,     // owns it
        kBase,     // may arm the base-time timer
        kInterval, // has to arm the interval timer
        kWait,     // waits for its timer or the event
    };
    // Where a pass is.
    enum class Step {
        kBetween,  // the next kind and day are to be looked at
        kRequest,  // has to send a request
        kDownload, // gets the answer
        kWrite,    // has to write the merged records
        kWriting,
    };
    struct Pass {
        bool hasBegun = false;
        std::vector<UtcMs> days = {};
        LocalMs lower = 0; // period that is kept
        LocalMs upper = 0;
        std::size_t company = 0;
        std::size_t kind = 0;
        std::size_t day = 0;
        Step step = Step::kBetween;
        bool siteIsEnabled = true;
        Reply reply = {};
        std::int64_t downloadEndsMs = 0;
        std::optional<Records> merged = {};
        std::vector<BYTE> expected = {}; // content of the file that is being written
    };
    struct Worker {
        DWORD threadId = 0;
        DWORD processId = 0;
        unsigned session = 0;
        At at = At::kStart;
        std::int64_t sinceMs = 0;        // when it got there
        bool isInitial = false;          // this run makes the initial update
        std::int64_t pausesUntilMs = -1; // a failed wait for the mutex is followed by a rest, at most until then
        bool hasTimer = true;
        std::optional<CDue> due = {};    // what its timer is armed for, as far as it is
        std::optional<CDue> oldDue = {}; // what it was armed for before this wait, when it could not be disarmed
        bool dueIsOld = false;           // it is still armed for an earlier wait: disarming and arming failed
        bool disarmFailed = false;
        bool isAtBase = false;                           // it waits, as far as is known, for the base time
        bool isWoken = false;                            // the event ended its wait
        bool tookPending = false;                        // it was set before the wait began
        std::optional<std::int64_t> mustEndBy = {};      // told to stop, or at its end
        std::map<std::string, std::int64_t> values = {}; // numbers that it read last
        std::pair<int, CString> lookup = {-1, {}};       // site and value whose per-user hive it has asked
        bool writeFailed = false;                        // of the file that it is writing
        Pass pass = {};
    };

    void Violate(const std::string& text);
    void Note(const std::string& line);
    std::int64_t Now() const { return m_machine.ElapsedMs(); }
    UtcMs UtcNow() const { return m_utcAtStart + Now(); }

    Program* ProgramOfMain(const Caller& caller);
    Worker* WorkerOf(const Caller& caller);
    static std::string NameOf(const Worker& worker);

    // Drops the orders at the front that change nothing.
    void SkipIdleOrders(Program& program);
    // Takes the order that a program carries out now; whether there was that one.
    bool TakeOrder(Program& program, Order::What what);
    void FailStart(Program& program);
    void StopWorker(Program& program);

    void OnValue(Worker& worker, int site, const CString& name, std::optional<DWORD> value);
    void OnDecision(Worker& worker, bool isEnabled);
    void OnBaseSettings(Worker& worker);
    void OnIntervalSettings(Worker& worker);
    void BeginWait(Worker& worker, std::optional<CDue> due);
    void MoveTo(Worker& worker, At at);
    void EndWorker(Worker& worker);

    void BeginPass(Worker& worker);
    // Takes the end of a download into account, when it has come.
    void Settle(Worker& worker);
    void BeginStep(Worker& worker, int site);
    void OnUrlSettled(Worker& worker, bool isWanted);
    void EndDay(Worker& worker, const std::optional<Records>& records);
    void EndKind(Worker& worker);
    void EndPass(Worker& worker);
    CString PathOf(const Pass& pass) const;
    std::vector<BYTE> FileOf(const Pass& pass) const;

    void CheckProgram(Program& program);
    void CheckWorker(const Worker& worker);

    struct KnownFile {
        std::vector<BYTE> bytes = {};
        bool isWhole = false;
        unsigned pass = 0; // during which it was written
    };

    const platform::sim::CMachine& m_machine;
    CRunLog& m_log;
    const CZone m_zone;
    UtcMs m_utcAtStart;
    const Answerer m_answer;
    std::optional<Violation> m_violation = {};

    std::map<DWORD, DWORD> m_firstThreads = {}; // by process
    std::map<DWORD, Program> m_programs = {};
    std::map<DWORD, unsigned> m_shortCopies = {}; // that have not returned, with their sessions
    std::map<DWORD, Worker> m_workers = {};       // by thread
    std::map<unsigned, bool> m_eventIsSet = {};   // by session
    DWORD m_mutexOwner = 0;                       // a thread; 0: free
    std::map<CString, KnownFile> m_files = {};
    std::map<unsigned, unsigned> m_lastPasses = {}; // by session
    bool m_isConnected = true;
    bool m_diskIsLimited = false;
    CString m_heldPath = {};
    std::int64_t m_clockMovedMs = -1;
    unsigned m_passes = 0;
    std::uint64_t m_requests = 0;
};

// The path of a data file.
CString DataFilePath(const Company& company, const Kind& kind);

} // namespace simulation
