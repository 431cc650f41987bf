// Watches the program on the simulated machine: threads, settings queries, mutexes, requests, files. It writes down
// what it sees (State.h), and says at once which invariant (Invariants.h) does not hold.
#pragma once

#include "platform/sim/Observer.h"
#include "testing/simulation/Invariants.h"
#include "testing/simulation/RunLog.h"

#include <functional>

namespace simulation {

// Everything runs on the thread that runs on the machine. After the first violation nothing is looked at any more.
class CChecker : public platform::sim::CObserver {
public:
    using Caller = platform::sim::Caller;
    using Answerer = std::function<Reply(const TestKind& kind, const SYSTEMTIME& day, const CZone& zone)>;

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
    void OnOrder(DWORD processId, Order::What what);
    // The clock has moved by this much, beside the time that passed.
    void OnClockMoved(std::int64_t byMs);
    void OnConnected(bool isConnected) { m_isConnected = isConnected; }
    // A reader holds this file; empty: none.
    void OnFileHeld(const CString& path) { m_heldPath = path; }
    void OnDiskLimited(bool isLimited) { m_state.diskIsLimited = isLimited; }
    // Another process of the session sets the update event.
    void OnManualUpdate(unsigned session);
    // A call of the program fails, on the calling thread; said by the machine's plan of faults.
    void OnFault(platform::sim::Call call);

    // The web's answer to a request.
    testing_support::HttpAnswer Answer(const testing_support::HttpExchange& exchange);

    // --- What it is asked.

    // Nothing of what must have happened by now is missing. While all threads wait.
    void CheckDeadlines();
    // Every session has made a pass without faults, and the files are right, since firstPass (a count of passes).
    void CheckConverged(unsigned sessions, unsigned firstPass);
    // Nothing is left of the programs, which have all been told to quit.
    void CheckLeftovers();

    // The first violation, if there is one.
    const std::optional<Violation>& FirstViolation() const { return m_violation; }
    // The session's copy that is to run and has not returned yet; null when there is none.
    const ProgramState* CopyOf(unsigned session) const;
    bool IsProgram(DWORD processId) const { return m_state.programs.contains(processId); }
    // Passes that were made to their end.
    unsigned PassCount() const { return m_state.passes; }
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
    // Whether the invariants of the moment hold, and all did before.
    bool Check(const Seen& seen);
    // worker: null for a thread that is none.
    Seen SeenOf(Moment moment, const WorkerState* worker) const
    {
        return {m_state, moment, worker == nullptr ? nullptr : worker->program, worker};
    }
    void Note(const std::string& line) { m_log.Add(m_state.Now(), line); }

    // Null for other threads. A worker's download that has ended has been taken into account.
    ProgramState* ProgramOfMain(const Caller& caller);
    WorkerState* WorkerOf(DWORD threadId);

    // Takes the order that a program carries out at this moment; false, and a violation, when there is none.
    bool TakeOrder(Moment moment, ProgramState* program);
    static void OnWorkerFault(WorkerState& worker, platform::sim::Call call);

    void OnSiteValue(WorkerState& worker, const CString& name, std::optional<DWORD> value);
    void OnMainValue(WorkerState& worker, const CString& name, std::optional<DWORD> value);
    void OnDecision(WorkerState& worker, bool isEnabled);
    void OnBaseSettings(WorkerState& worker);
    void OnIntervalSettings(WorkerState& worker);
    void MoveTo(WorkerState& worker, WorkerState::At at);
    // Takes the end of a download into account, when it has come.
    void Settle(WorkerState& worker);

    CRunLog& m_log;
    const CZone m_zone;
    const Answerer m_answer;
    State m_state;
    std::optional<Violation> m_violation = {};
    bool m_isConnected = true;
    CString m_heldPath = {};
    std::uint64_t m_requests = 0;
};

} // namespace simulation
