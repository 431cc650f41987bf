// A waitable timer whose expiry ends the alertable wait of the thread that armed it.
#pragma once

#include "platform/CriticalSection.h"
#include "platform/Timer.h"

// One thread arms, cancels and closes the timer; its routine runs on that thread while it waits alertably.
class CWaitTableTimer {
public:
    CWaitTableTimer();
    // Closes.
    virtual ~CWaitTableTimer();
    CWaitTableTimer(const CWaitTableTimer&) = delete;
    CWaitTableTimer& operator=(const CWaitTableTimer&) = delete;

    // Runs when the timer falls due; does nothing, for subclasses to use. The time that both halves make up is not
    // reliable for relative due times.
    virtual void OnTimerEvent(DWORD timerLowValue, DWORD timerHighValue);

    // Makes the timer, closing an earlier one first. Whether there is one now.
    BOOL Create();
    // Arms it once, replacing an earlier due time. *dueTime: negative: relative, in 100-nanosecond units; positive:
    // absolute UTC on the FILETIME scale, past: due at once. Does not wake a suspended machine. FALSE on failure, also
    // before Create.
    BOOL Start(const LARGE_INTEGER* dueTime);
    // Disarms it. Always TRUE, also before Create.
    BOOL Cancel();
    // Cancels and lets go of the timer. Does nothing before Create.
    void Close();

protected:
    // The routine of the armed timer. arg: the timer object; null is refused. Never throws.
    static void _TimerAPCProc(void* arg, DWORD timerLowValue, DWORD timerHighValue);

private:
    platform::CCriticalSection m_lock; // guards m_timer
    platform::TimerPtr m_timer;        // null when none
};
