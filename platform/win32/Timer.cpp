#include "platform/Timer.h"

#include "platform/win32/Handle.h"

#include <map>
#include <mutex>

namespace platform {

namespace {

// What an armed timer has to run, by a number that is never used twice. The system is given the number, not the timer:
// a routine that reaches its thread after the timer was disarmed, armed again or closed finds nothing here and does
// nothing.
class CArmedRoutines {
public:
    ULONG_PTR Add(TimerRoutine routine, void* argument)
    {
        const std::lock_guard lock(m_mutex);
        m_routines.emplace(++m_lastNumber, Routine{routine, argument});
        return m_lastNumber;
    }
    void Remove(ULONG_PTR number)
    {
        const std::lock_guard lock(m_mutex);
        m_routines.erase(number);
    }
    void Run(ULONG_PTR number, DWORD low, DWORD high)
    {
        Routine found = {};
        {
            const std::lock_guard lock(m_mutex);
            const auto position = m_routines.find(number);
            if (position == m_routines.end()) {
                return;
            }
            found = position->second;
            m_routines.erase(position);
        }
        // Unlocked, since the routine may use timers.
        if (found.routine) {
            found.routine(found.argument, low, high);
        }
    }

private:
    struct Routine {
        TimerRoutine routine;
        void* argument;
    };
    std::mutex m_mutex;
    std::map<ULONG_PTR, Routine> m_routines;
    ULONG_PTR m_lastNumber = 0;
};

CArmedRoutines& ArmedRoutines()
{
    static CArmedRoutines routines;
    return routines;
}

void CALLBACK RunRoutine(void* number, DWORD low, DWORD high)
{
    ArmedRoutines().Run(reinterpret_cast<ULONG_PTR>(number), low, high);
}

} // namespace

class CTimer {
public:
    CTimer() = default;
    ~CTimer()
    {
        ArmedRoutines().Remove(m_routine);
        // Closing alone may leave a due call behind, which would still end the thread's next wait.
        if (m_handle) {
            ::CancelWaitableTimer(m_handle.Get());
        }
    }
    CTimer(const CTimer&) = delete;
    CTimer& operator=(const CTimer&) = delete;

    win32::CKernelHandle m_handle;
    ULONG_PTR m_routine = 0; // number in ArmedRoutines, 0 for none
};

TimerPtr MakeTimer()
{
    auto timer = std::make_shared<CTimer>();
    timer->m_handle.Reset(::CreateWaitableTimerW(nullptr, FALSE, nullptr));
    return timer->m_handle ? timer : nullptr;
}

BOOL ArmTimer(const TimerPtr& timer, const LARGE_INTEGER* dueTime, TimerRoutine routine, void* argument)
{
    if (!timer) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    ArmedRoutines().Remove(timer->m_routine);
    timer->m_routine = ArmedRoutines().Add(routine, argument);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the system hands the number through and follows no pointer
    auto* const number = reinterpret_cast<void*>(timer->m_routine);
    return ::SetWaitableTimer(timer->m_handle.Get(), dueTime, 0, RunRoutine, number, FALSE);
}

BOOL DisarmTimer(const TimerPtr& timer)
{
    if (!timer) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    ArmedRoutines().Remove(timer->m_routine);
    timer->m_routine = 0;
    return ::CancelWaitableTimer(timer->m_handle.Get());
}

} // namespace platform
