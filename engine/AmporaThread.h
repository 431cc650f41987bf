// The base of the program's worker thread.
#pragma once

#include "platform/CriticalSection.h"
#include "platform/Thread.h"

#include <atomic>
#include <memory>

// Creates a thread inside a COM apartment, runs the subclass's procedure on it, and lets its owner ask it to end and
// wait for that.
//
// Stop gives up waiting after its time-out, so a thread can outlive it. Three things keep that safe. Every run has its
// own exit flag, so that a following Start never takes back the request to end. Stop interrupts the thread's alertable
// wait, should it be in one, so that it takes no signal that is meant for the next run. And a run keeps the object
// alive: an object held by a std::shared_ptr is destroyed by the last of its owner and the ending thread. Releasing it
// therefore neither asks the thread to end nor waits: the owner stops it first. An object that is not held by a
// std::shared_ptr must not be destroyed before its thread has ended.
//
// Start, Stop and the destructor belong to one owning thread at a time.
class CAmporaThread : public std::enable_shared_from_this<CAmporaThread> {
public:
    CAmporaThread();
    // Stops a running thread, waiting at most 100 ms.
    virtual ~CAmporaThread();
    CAmporaThread(const CAmporaThread&) = delete;
    CAmporaThread& operator=(const CAmporaThread&) = delete;

    // Starts the thread. FALSE, without a message, when it is already started; FALSE when it cannot be created.
    virtual BOOL Start();
    // Asks the thread to end, waits for it at most timeoutMs milliseconds and closes its handle in either case. A
    // thread that has not ended by then has its alertable wait, or its next one, interrupted. Does nothing when no
    // thread is started.
    virtual void Stop(DWORD timeoutMs);
    // The thread's work, on the thread. Polls IsExitSet. Exceptions end the thread silently.
    virtual void ThreadProc() = 0;
    // Asks the current run to end. Any thread.
    virtual void SetExit();

protected:
    // Whether the calling thread's run, or on another thread the latest run, has been asked to end.
    // Any thread.
    bool IsExitSet() const;

    // Entry of the thread. argument: what Start handed over; null is refused. Always 0.
    static DWORD _CallThreadProc(void* argument);

    // Guards the thread, the exit flag and the subclass's own handles.
    platform::CCriticalSection m_lock;

private:
    // One start of the thread.
    struct Run {
        const CAmporaThread* owner = nullptr;
        std::atomic<LONG> exitFlag = 0; // 0 or 1; never goes back to 0
    };
    // What a new thread gets.
    struct Launch {
        CAmporaThread* object = nullptr;
        std::shared_ptr<CAmporaThread> keepAlive; // null when the object is not held by a std::shared_ptr
        std::shared_ptr<Run> run;
    };

    static thread_local const Run* t_run; // the calling thread's run; null on other threads
    platform::ThreadPtr m_thread;         // null when not started
    std::shared_ptr<Run> m_run;           // the latest run, never null
};
