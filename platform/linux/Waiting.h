// How threads wait: for named objects (Sync.cpp) and for their own timers (Timer.cpp).
//
// One lock, the dispatcher, guards the state of all wait objects, timers and waits of the process. A thread that waits
// is entered in every object that it waits for and then sleeps in one poll of its own event descriptor, the files of
// the events (other processes write to them) and its timers, without time-out unless its caller gave one. Whoever
// signals an object ends the wait of a thread entered in it there and then, under the dispatcher: it names the result
// and wakes that thread. So every signal goes to exactly one thread, and nothing ever looks again and again.
#pragma once

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/Polling.h"
#include "platform/Sync.h"
#include "platform/Timer.h"

#include <deque>
#include <mutex>
#include <utility>
#include <vector>

namespace platform {

class CWaitObject;

namespace linux {

class CMutex;
struct Wait;

// Held for moments only, never while something is waited for.
extern constinit std::mutex g_dispatcher;

// What a thread owns and has armed. All of it under the dispatcher.
class CThreadState {
public:
    // The calling thread's.
    static CThreadState& Current();
    // Makes this the calling thread's, as long as it lives; only before Current() was called.
    void MakeCurrent();

    CThreadState() = default;
    // At a thread's end; End() may have been called before.
    ~CThreadState() { End(); }
    CThreadState(const CThreadState&) = delete;
    CThreadState& operator=(const CThreadState&) = delete;

    // Abandons the mutexes that the thread owns and disarms its timers. Dispatcher not held.
    void End();

    // Makes what Wake works on. False, with the last error set, on failure.
    bool PrepareWake();
    // Ends the poll of the thread's wait, also one that it has not begun yet. Any thread.
    void Wake();
    void ClearWake();

    // Ends the thread's alertable wait, or else its next one, with WAIT_IO_COMPLETION. Any thread.
    void Interrupt();
    // Whether the thread was interrupted outside an alertable wait; it counts for one wait.
    bool TakeInterrupt() { return std::exchange(m_isInterrupted, false); }

    // Sees which timers have fallen due; whether one has. Then RunDueTimers runs their routines, on this thread and
    // with the dispatcher, which lock holds, let go meanwhile.
    bool FindDueTimers();
    void RunDueTimers(std::unique_lock<std::mutex>& lock);

    CFileDescriptor m_wake;              // event descriptor, readable after Wake
    std::vector<CMutex*> m_ownedMutexes; // with room for one more while the thread takes one or waits
    std::vector<CTimer*> m_armedTimers;
    Wait* m_alertableWait = nullptr; // that it sleeps in; null for none

private:
    bool m_isInterrupted = false;
};

// One thread's wait in progress. Ended once: by whoever signals one of its objects, or by the thread itself.
struct Wait {
    CThreadState& thread;
    bool ended = false;
    DWORD result = WAIT_TIMEOUT; // once ended
};

} // namespace linux

// A named mutex or event. All members under the dispatcher, but the destructor, which must not hold it.
class CWaitObject {
public:
    CWaitObject() = default;
    virtual ~CWaitObject() = default;
    CWaitObject(const CWaitObject&) = delete;
    CWaitObject& operator=(const CWaitObject&) = delete;

    // Takes the object for the calling thread if it is signalled now: WAIT_OBJECT_0 or WAIT_ABANDONED_0. Otherwise
    // WAIT_TIMEOUT, or WAIT_FAILED with the last error set.
    virtual DWORD TryTake(linux::CThreadState& thread) = 0;
    // Sees to it that the entered waits are ended when the object becomes signalled. Called again each time a wait has
    // woken up without result. False, with the last error set, on failure.
    virtual bool Watch() { return true; }
    // A descriptor that becomes readable when it is worth trying again, -1 for none.
    virtual int WatchedDescriptor() const { return -1; }

    // Enters a wait; index: of the object among those waited for. Removes all its entries.
    void Enter(linux::Wait& wait, DWORD index) { m_waits.push_back({&wait, index}); }
    void Remove(const linux::Wait& wait)
    {
        std::erase_if(m_waits, [&wait](const Entry& entry) { return entry.wait == &wait; });
    }

protected:
    // The thread of the wait that was entered first and has not ended; null for none.
    linux::CThreadState* FirstWaiting() const;
    // Ends that wait with status plus the index. There must be one.
    void EndFirstWait(DWORD status);
    // Lets the threads of all waits try and watch the object again.
    void WakeWaiting();

private:
    struct Entry {
        linux::Wait* wait;
        DWORD index;
    };
    std::deque<Entry>::const_iterator FirstEntry() const;

    std::deque<Entry> m_waits;
};

// A timer. All members under the dispatcher, but the destructor, which must not hold it.
class CTimer {
public:
    CTimer(linux::CFileDescriptor relative, linux::CFileDescriptor absolute)
        : m_relative(std::move(relative)), m_absolute(std::move(absolute))
    {
    }
    ~CTimer();
    CTimer(const CTimer&) = delete;
    CTimer& operator=(const CTimer&) = delete;

    // Takes the timer off its thread's list.
    void Detach();

    linux::CFileDescriptor m_relative; // on the monotonic clock
    linux::CFileDescriptor m_absolute; // on the wall clock
    int m_armed = -1;                  // whichever of them is armed
    linux::CThreadState* m_thread = nullptr;
    TimerRoutine m_routine = nullptr;
    void* m_argument = nullptr;
    bool m_isDue = false; // the routine is to run
};

} // namespace platform
