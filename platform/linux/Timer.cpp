#include "platform/Timer.h"

#include "platform/LastError.h"
#include "platform/linux/ErrorCode.h"
#include "platform/linux/Waiting.h"
#include "platform/portable/FileTime.h"

#include <algorithm>
#include <cerrno>
#include <sys/timerfd.h>

namespace platform {

namespace {

using namespace linux;

// Does not block: a wait reads it to learn whether the timer is due.
CFileDescriptor MakeTimerDescriptor(clockid_t clock)
{
    return CFileDescriptor(::timerfd_create(clock, TFD_CLOEXEC | TFD_NONBLOCK));
}

// A count of 100-nanosecond units as a timer takes it. A zero would disarm the timer: one nanosecond is due at once
// too.
itimerspec OneShotAfter(std::uint64_t units)
{
    constexpr auto kPerSecond = static_cast<std::uint64_t>(portable::kUnitsPerSecond);
    itimerspec spec = {};
    spec.it_value.tv_sec = static_cast<std::time_t>(units / kPerSecond);
    spec.it_value.tv_nsec = units == 0 ? 1 : static_cast<long>(units % kPerSecond * 100);
    return spec;
}

// Stops whichever of the two descriptors is armed and forgets an expiration that has not been read. Dispatcher held.
bool Stop(CTimer& timer)
{
    timer.Detach();
    const itimerspec never = {};
    return ::timerfd_settime(timer.m_relative.Get(), 0, &never, nullptr) == 0 &&
           ::timerfd_settime(timer.m_absolute.Get(), 0, &never, nullptr) == 0;
}

// Arms the descriptor of the due time's clock. Dispatcher held.
bool Run(CTimer& timer, LONGLONG dueTime)
{
    if (dueTime < 0) {
        // Negated as an unsigned number, since the smallest has no positive counterpart.
        const itimerspec after = OneShotAfter(std::uint64_t{0} - static_cast<std::uint64_t>(dueTime));
        timer.m_armed = timer.m_relative.Get();
        return ::timerfd_settime(timer.m_armed, 0, &after, nullptr) == 0;
    }
    // A time before 1970 is past as well as 1970 is.
    const LONGLONG sinceEpoch = std::max<LONGLONG>(dueTime - portable::kUnixEpochCount, 0);
    const itimerspec at = OneShotAfter(static_cast<std::uint64_t>(sinceEpoch));
    timer.m_armed = timer.m_absolute.Get();
    return ::timerfd_settime(timer.m_armed, TFD_TIMER_ABSTIME, &at, nullptr) == 0;
}

BOOL Fail(DWORD code)
{
    SetLastErrorCode(code);
    return FALSE;
}

} // namespace

TimerPtr MakeTimer()
{
    CFileDescriptor relative = MakeTimerDescriptor(CLOCK_MONOTONIC);
    CFileDescriptor absolute = relative ? MakeTimerDescriptor(CLOCK_REALTIME) : CFileDescriptor();
    if (!absolute) {
        SetLastErrorFrom(errno);
        return nullptr;
    }
    return std::make_shared<CTimer>(std::move(relative), std::move(absolute));
}

BOOL ArmTimer(const TimerPtr& timer, const LARGE_INTEGER* dueTime, TimerRoutine routine, void* argument)
{
    if (!timer) {
        return Fail(ERROR_INVALID_HANDLE);
    }
    if (dueTime == nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    CThreadState& thread = CThreadState::Current();
    const std::lock_guard lock(g_dispatcher);
    if (!Stop(*timer) || !Run(*timer, dueTime->QuadPart)) {
        return Fail(ErrorCodeOf(errno));
    }
    timer->m_routine = routine;
    timer->m_argument = argument;
    timer->m_thread = &thread;
    thread.m_armedTimers.push_back(timer.get());
    return TRUE;
}

BOOL DisarmTimer(const TimerPtr& timer)
{
    if (!timer) {
        return Fail(ERROR_INVALID_HANDLE);
    }
    const std::lock_guard lock(g_dispatcher);
    return Stop(*timer) ? TRUE : Fail(ErrorCodeOf(errno));
}

} // namespace platform
