// Runs the simulated machine's threads one at a time, and its clock.
#pragma once

#include "platform/Types.h"

#include <condition_variable>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace platform {
class CWindow;
} // namespace platform

namespace platform::sim {

struct ObjectWait;

// Virtual time counts 100-nanosecond units since the machine was made.
inline constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

// What a thread waits for, in words. Asked only when a report is made.
using Description = std::function<std::string()>;

// A process and the session it belongs to.
struct ProcessIdentity {
    DWORD processId = 1000;
    unsigned session = 1;
};

// Who a thread is to the system and what the system keeps for it.
struct ThreadContext {
    ProcessIdentity process = {};
    DWORD threadId = 0;
    DWORD lastError = 0;
};

// One simulated thread.
struct SimThread {
    ThreadContext context = {};
    bool hasEnded = false;

    // While it waits:
    Description waitsFor = {};              // for the deadlock report; empty: it does not wait
    std::int64_t deadline = kNever;         // virtual time at which it goes on anyway
    bool waitsForIdle = false;              // goes on at its deadline only when all others wait
    DWORD waitResult = 0;                   // filled in by what ends the wait
    const ObjectWait* objectWait = nullptr; // what it waits for, when that is mutexes and events
    const SimThread* joined = nullptr;      // what it waits for, when that is a thread's end
    const CWindow* messageWait = nullptr;   // what it waits for, when that is a message to a window

    bool isInterrupted = false; // its next alertable wait ends at once

    std::condition_variable turn = {};
    std::thread systemThread = {}; // none: the thread that made the machine
};

// While it lives, the memory that the calling thread takes is the machine's: a test that lets the program run out of
// memory spares it. For what no program sees fail, such as a wait or the end of a thread. Objects may nest.
class CMachineMemory {
public:
    CMachineMemory() { ++t_depth; }
    ~CMachineMemory() { --t_depth; }
    CMachineMemory(const CMachineMemory&) = delete;
    CMachineMemory& operator=(const CMachineMemory&) = delete;

    // Whether the calling thread has one.
    static bool IsInUse() { return t_depth > 0; }

private:
    static inline thread_local int t_depth = 0;
};

// Lets exactly one thread run: the one that holds the baton. It gives the baton up only in Wait, WaitForIdle and at its
// end. What the machine consists of is therefore touched by one thread at a time and needs no lock of its own; handing
// the baton over orders memory between the threads.
//
// Every member is for the thread that holds the baton.
class CScheduler {
public:
    // What else than a waiting thread makes the clock move: the timers.
    struct Alarms {
        std::function<std::int64_t()> nextDue; // virtual time of the earliest, kNever when there is none
        std::function<void()> soundDue;        // lets those that are due now take effect
    };

    // The calling thread becomes thread 1 and holds the baton.
    explicit CScheduler(Alarms alarms);
    // Ends the program when another thread has not ended.
    ~CScheduler();
    CScheduler(const CScheduler&) = delete;
    CScheduler& operator=(const CScheduler&) = delete;

    // The calling thread; ends the program when it belongs to no machine.
    static SimThread& Self();

    std::int64_t Now() const { return m_now; }

    // Threads that have not ended, and those that have but are still to be cleared away.
    std::size_t ThreadCount() const { return m_threads.size(); }

    // A new thread of this process that will run body when its turn comes. Throws std::system_error when there can be
    // no more threads.
    std::shared_ptr<SimThread> Start(const ProcessIdentity& process, std::function<void()> body);

    // Waits until another thread calls Wake for this one, or until the virtual time deadline. waitsFor: for the
    // deadlock report. Returns what Wake was given, or WAIT_TIMEOUT.
    DWORD Wait(Description waitsFor, std::int64_t deadline);

    // Waits until a thread has ended: WAIT_OBJECT_0, or WAIT_TIMEOUT.
    DWORD WaitForEnd(const SimThread& thread, std::int64_t deadline);

    // Waits until the virtual time deadline has come and all other threads wait for something later.
    void WaitForIdle(std::int64_t deadline);

    // Ends a thread's wait; it goes on after those that were ready before it.
    void Wake(SimThread& thread, DWORD result);

    // The threads that wait, the one that has waited longest first. A copy: the caller may wake them.
    std::vector<SimThread*> Waiting() const
    {
        const CMachineMemory memory;
        return m_waiting;
    }

private:
    void ReserveThreads(std::size_t count);
    void ForgetEndedThreads();
    void RunThread(SimThread& self, const std::function<void()>& body);
    void BeginWait(Description waitsFor, std::int64_t deadline, bool forIdle);
    void PassBaton(SimThread& self);
    SimThread& NextToRun();
    void MoveClock();
    [[noreturn]] void ReportDeadlock() const;

    const Alarms m_alarms;
    std::int64_t m_now = 0;
    DWORD m_lastThreadId = 1;
    std::vector<std::shared_ptr<SimThread>> m_threads; // the first one, and those not joined yet
    std::vector<SimThread*> m_ready;                   // both have room for all threads, so that waiting and
    std::vector<SimThread*> m_waiting;                 // waking need no memory

    std::mutex m_batonLock;
    const SimThread* m_running = nullptr; // guarded by m_batonLock
};

// Reports a misuse of the machine by a test and ends the program with a failure.
[[noreturn]] void EndProgram(const std::string& reason);

} // namespace platform::sim
