// What has been seen of the programs, their workers and passes. CChecker writes it down; the invariants read it.
#pragma once

#include "platform/sim/Machine.h"
#include "testing/simulation/Due.h"
#include "testing/simulation/PassState.h"

#include <deque>
#include <map>
#include <set>

namespace simulation {

inline constexpr int kMainKeySite = 0; // as a site number: the settings' main key

// How long a stop waits for the worker: on leaving and on quitting.
inline constexpr std::int64_t kStopMs = 100;
inline constexpr std::int64_t kQuitMs = 1000;

// A message that changes whether a program updates.
struct Order {
    enum class What { kStart, kStop, kQuit };
    What what;
    std::int64_t postedMs;
};

// A copy of the program that is to run.
struct ProgramState {
    DWORD processId = 0;
    unsigned session = 0;
    bool isStarted = false; // its updater
    bool initialUpdateDone = false;
    bool getsSessionNotices = true;
    bool isQuitting = false;
    bool missesPulse = false; // the worker misses the pulse of the next stop
    bool hasReturned = false;
    std::deque<Order> orders = {}; // not carried out yet
    std::int64_t freeMs = 0;       // from when its first thread can handle the next message, at the latest
    DWORD worker = 0;              // of the latest start

    std::string Name() const { return "program " + std::to_string(processId); }
    // Drops the orders at the front that change nothing.
    void DropIdleOrders()
    {
        while (IsTold(isStarted ? Order::What::kStart : Order::What::kStop)) {
            orders.pop_front();
        }
    }
    bool IsTold(Order::What what) const { return !orders.empty() && orders.front().what == what; }
};

struct WorkerState {
    enum class At {
        kStart,    // has decided nothing yet
        kTurn,     // waits for the update mutex
        kPass,     // owns it
        kBase,     // may arm the base-time timer
        kInterval, // has to arm the interval timer
        kWait,     // waits for its timer or the event
    };

    DWORD threadId = 0;
    ProgramState* program = nullptr; // never null
    At at = At::kStart;
    std::int64_t sinceMs = 0;     // when it got there, or when the event ended its wait
    bool isInitial = false;       // its first pass is the program's first one
    std::optional<CDue> due = {}; // of its wait
    // A timer or wait of this run failed: which pass is due is not followed any further.
    bool hasFaultySchedule = false;
    std::optional<std::int64_t> mustEndBy = {};    // told to stop, or at its end
    std::map<CString, std::int64_t> numbers = {};  // of the main key that it read last
    std::pair<int, CString> userLookup = {-1, {}}; // site and value looked for in the per-user settings, not found
    bool writeFailed = false;                      // of the file that it is writing
    PassState pass = {};

    std::string Name() const { return "worker " + std::to_string(threadId) + " of " + program->Name(); }
    bool IsIn(PassState::Step step) const { return at == At::kPass && pass.step == step; }
    std::int64_t NumberOr(const CString& name, std::int64_t other) const
    {
        const auto found = numbers.find(name);
        return found == numbers.end() ? other : found->second;
    }
};

// A file that a pass wrote.
struct WrittenFile {
    std::vector<BYTE> bytes = {};
    bool isWhole = false;
    unsigned pass = 0; // how many passes were made before
};

struct State {
    State(const platform::sim::CMachine& theMachine, UtcMs utcNow)
        : machine(theMachine), utcAtStart(utcNow - theMachine.ElapsedMs())
    {
    }
    std::int64_t Now() const { return machine.ElapsedMs(); }
    UtcMs UtcNow() const { return utcAtStart + Now(); }
    bool IsEventSet(const WorkerState& worker) const { return setEvents.contains(worker.program->session); }

    const platform::sim::CMachine& machine;
    UtcMs utcAtStart; // moved when the clock is
    std::int64_t clockMovedMs = -1;
    std::map<DWORD, ProgramState> programs = {};  // by process
    std::set<DWORD> shortCopies = {};             // processes that have not returned
    std::map<DWORD, WorkerState> workers = {};    // by thread
    std::set<unsigned> setEvents = {};            // sessions whose update event is set
    DWORD mutexOwner = 0;                         // a thread; 0: the update mutex is free
    std::map<CString, WrittenFile> files = {};    // by path
    std::map<unsigned, unsigned> lastPasses = {}; // number of the last pass, by session
    unsigned passes = 0;                          // made to their end
    unsigned sessions = 0;                        // that must make a pass after the faults
    unsigned convergesFrom = 0;                   // passes that were made when the faults had stopped
    bool diskIsLimited = false;
};

} // namespace simulation
