#include "platform/sim/Timers.h"

#include "platform/Clock.h"
#include "platform/portable/FileTime.h"
#include "platform/sim/KernelObjects.h"

#include <algorithm>

namespace platform::sim {

TimerPtr CTimers::Make()
{
    std::erase_if(m_timers, [](const auto& timer) { return timer.expired(); });
    auto timer = std::make_shared<CTimer>();
    m_timers.push_back(timer);
    return timer;
}

void CTimers::Arm(CTimer& timer, std::int64_t dueTime, TimerRoutine routine, void* argument)
{
    timer.state = CTimer::State::kArmed;
    timer.isAbsolute = dueTime >= 0;
    timer.dueTime = timer.isAbsolute ? dueTime : m_scheduler.Now() - dueTime;
    timer.order = ++m_armed;
    timer.thread = &CScheduler::Self();
    timer.routine = routine;
    timer.argument = argument;
    SoundDue();
}

void CTimers::Disarm(CTimer& timer) { timer.state = CTimer::State::kIdle; }

void CTimers::DisarmAllOf(const SimThread& thread)
{
    for (const TimerPtr& timer : All()) {
        if (timer->thread == &thread) {
            Disarm(*timer);
        }
    }
}

std::int64_t CTimers::NextDue() const
{
    std::int64_t next = kNever;
    for (const TimerPtr& timer : All()) {
        if (timer->state == CTimer::State::kArmed) {
            next = std::min(next, VirtualDue(*timer));
        }
    }
    return next;
}

void CTimers::SoundDue()
{
    for (const TimerPtr& timer : All()) {
        if (timer->state != CTimer::State::kArmed || VirtualDue(*timer) > m_scheduler.Now()) {
            continue;
        }
        timer->state = CTimer::State::kRoutineDue;
        const std::vector<SimThread*> waiting = m_scheduler.Waiting();
        const bool waits = std::find(waiting.begin(), waiting.end(), timer->thread) != waiting.end();
        if (waits && timer->thread->objectWait != nullptr && timer->thread->objectWait->alertable) {
            m_scheduler.Wake(*timer->thread, WAIT_IO_COMPLETION);
        }
    }
}

bool CTimers::RunDueRoutines()
{
    bool anyRan = false;
    // Looked for again each time: a routine may disarm or close the timer whose routine would be next.
    while (const TimerPtr timer = FirstDueRoutine()) {
        timer->state = CTimer::State::kIdle;
        const FILETIME due = FileTimeOf(static_cast<std::uint64_t>(VirtualDue(*timer) + m_utcAtStart));
        timer->routine(timer->argument, due.dwLowDateTime, due.dwHighDateTime);
        anyRan = true;
    }
    return anyRan;
}

TimerPtr CTimers::FirstDueRoutine() const
{
    for (const TimerPtr& timer : All()) {
        if (timer->state == CTimer::State::kRoutineDue && timer->thread == &CScheduler::Self()) {
            return timer;
        }
    }
    return nullptr;
}

unsigned CTimers::ArmedCount() const
{
    const std::vector<TimerPtr> timers = All();
    return static_cast<unsigned>(std::count_if(
        timers.begin(), timers.end(), [](const TimerPtr& timer) { return timer->state == CTimer::State::kArmed; }));
}

// The timers that still have a handle, in the order in which they fall due.
std::vector<TimerPtr> CTimers::All() const
{
    const CMachineMemory memory;
    std::vector<TimerPtr> timers;
    for (const auto& known : m_timers) {
        if (TimerPtr timer = known.lock()) {
            timers.push_back(std::move(timer));
        }
    }
    std::sort(timers.begin(), timers.end(), [this](const TimerPtr& left, const TimerPtr& right) {
        return std::pair(VirtualDue(*left), left->order) < std::pair(VirtualDue(*right), right->order);
    });
    return timers;
}

std::int64_t CTimers::VirtualDue(const CTimer& timer) const
{
    return timer.isAbsolute ? timer.dueTime - m_utcAtStart : timer.dueTime;
}

} // namespace platform::sim
