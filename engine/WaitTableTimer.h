// A waitable timer whose expiry ends the alertable wait of the thread that armed it.
#pragma once

#include "platform/CriticalSection.h"
#include "platform/Timer.h"

// One thread arms, cancels and closes the timer; its routine runs on that thread while it waits alertably.
class CWaitTableTimer {
public:
    CWaitTableTimer();
    // Closes the timer.
    virtual ~CWaitTableTimer();
    CWaitTableTimer(const CWaitTableTimer&) = delete;
    CWaitTableTimer& operator=(const CWaitTableTimer&) = delete;

    // Runs when the timer is due; does nothing here, subclasses may use it. The parameters are the two halves of the
    // due time, which is not reliable for relative due times.
    virtual void OnTimerEvent(DWORD timerLowValue, DWORD timerHighValue);

    // Creates the timer, closing an earlier one first. Whether that succeeded.
    BOOL Create();
    // Arms it once, replacing an earlier due time. *dueTime: negative: relative, in 100-nanosecond units; positive:
    // absolute UTC on the FILETIME scale; in the past: due at once. Does not wake a suspended machine. FALSE on
    // failure, also before Create.
    BOOL Start(const LARGE_INTEGER* dueTime);
    // Disarms it. Always TRUE, also before Create.
    BOOL Cancel();
    // Cancels and closes the timer. Does nothing before Create.
    void Close();

protected:
    // The routine of the armed timer. arg: the timer object; null is refused. Never throws.
    static void _TimerAPCProc(void* arg, DWORD timerLowValue, DWORD timerHighValue);

private:
    platform::CCriticalSection m_lock; // guards m_timer
    platform::TimerPtr m_timer;        // null until Create
};
