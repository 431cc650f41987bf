// Runs the whole program on the simulated machine for many days, drawing what happens to it from a seed.
#pragma once

#include "testing/simulation/Checker.h"

namespace simulation {

// The program's entry: arguments without the program's name; its exit code.
using Entry = std::function<int(const std::vector<CString>& arguments)>;

// The program as it ships.
int RunAmporaSrv(const std::vector<CString>& arguments);

// One simulation, on a machine of its own.
class CSimulation {
public:
    CSimulation(std::uint64_t seed, const Options& options, Entry entry, bool keepsLog);
    // After a violation it asks the program to end and lets some minutes pass; the simulated machine ends the test
    // program when a thread is left even then.
    ~CSimulation();
    CSimulation(const CSimulation&) = delete;
    CSimulation& operator=(const CSimulation&) = delete;

    // To the end, or to the first violation.
    void Run();

    const std::optional<Violation>& FirstViolation() const { return m_checker.FirstViolation(); }
    const CRunLog& Log() const { return m_log; }
    unsigned PassCount() const { return m_checker.PassCount(); }
    std::uint64_t RequestCount() const { return m_checker.RequestCount(); }

private:
    struct SessionPlan {
        std::int64_t startsMs = 0; // when a copy is to be started, when none runs
        bool isConnected = true;
    };

    bool HasFailed() const { return m_checker.FirstViolation().has_value(); }
    void Note(const std::string& line) { m_log.Add(m_machine.ElapsedMs(), line); }
    unsigned AnySession() { return static_cast<unsigned>(1 + m_random.Below(m_sessions.size())); }
    // Lets time pass and looks whether all is well.
    void RunFor(std::int64_t timeMs);

    CZone MakeZone();
    void MakeFirstSettings();
    void PutSetting(platform::Hive hive, unsigned session, const CString& keyPath, const CString& name, LONG value);
    std::optional<DWORD> PlanFault(platform::sim::Call call);
    unsigned FaultPerMille(platform::sim::Call call) const;

    // The session's copy, as far as it has not been told to quit; 0 when there is none.
    DWORD RunningCopy(unsigned session) const;
    // Posts an order to it, if there is one.
    void PostOrder(unsigned session, Order::What what);
    DWORD StartProcess(unsigned session, const std::vector<CString>& arguments);
    void StartMissingCopies();
    void StartProgram(unsigned session);
    void StartShortCopy(unsigned session, const std::vector<CString>& arguments);
    void MoveClock(std::int64_t byMs);

    using Event = void (CSimulation::*)();
    std::vector<Event> WantedEvents() const;
    void SuspendAndResume();
    void SwitchConsole();
    void JumpClock();
    void RequestUpdate();
    void ChangeSetting();
    void PutOrRemove(platform::Hive hive, unsigned session, const CString& key, const CString& name, LONG value);
    void TellToExit();
    void StartSecondCopy();
    void TakeUpdateMutex();
    void SwitchNetwork();
    void SwitchDiskSpace();
    void SwitchReader();
    void NotifyPower(WPARAM event, Order::What what);

    // The end: no more faults; the files get right; everything is taken down.
    void Calm();
    void Converge();
    void TakeDown();

    Options m_options;
    const Entry m_entry;
    CGenerator m_random;  // what happens
    CGenerator m_answers; // what the report API answers
    CGenerator m_faults;  // which calls fail
    CRunLog m_log;
    platform::sim::CMachine m_machine;
    CZone m_zone;
    CChecker m_checker;
    std::vector<SessionPlan> m_sessions;
    std::map<DWORD, int> m_mutexCalls = {}; // by process
    bool m_hasNetwork = true;
    bool m_diskIsFull = false;
    CString m_readPath = {};
    unsigned m_foreigners = 0;
    bool m_isCalm = false;
};

} // namespace simulation
