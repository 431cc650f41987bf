// The waitable timers of the simulated machine.
#pragma once

#include "platform/sim/Scheduler.h"
#include "platform/Timer.h"

namespace platform {

// One timer. Its due time is a virtual time, or a UTC time on the FILETIME scale when it is absolute.
class CTimer {
public:
    enum class State { kIdle, kArmed, kRoutineDue };
    State state = State::kIdle;
    bool isAbsolute = false;
    std::int64_t dueTime = 0;
    std::uint64_t order = 0; // timers that fall due together do so in the order in which they were armed
    sim::SimThread* thread = nullptr;
    TimerRoutine routine = nullptr;
    void* argument = nullptr;
};

} // namespace platform

namespace platform::sim {

// All timers of the machine. A timer whose last handle is closed is forgotten by that alone.
class CTimers {
public:
    // utcAtStart: the machine's UTC wall clock at virtual time 0, which changes when the clock is set.
    CTimers(CScheduler& scheduler, const std::int64_t& utcAtStart) : m_scheduler(scheduler), m_utcAtStart(utcAtStart) {}

    TimerPtr Make();
    // Arms the timer for the calling thread; dueTime as in ArmTimer.
    void Arm(CTimer& timer, std::int64_t dueTime, TimerRoutine routine, void* argument);
    void Disarm(CTimer& timer);
    void DisarmAllOf(const SimThread& thread);

    // Virtual time of the earliest due time, kNever when no timer is armed.
    std::int64_t NextDue() const;
    // Makes the routines of the timers that are due now wait for their threads, and ends those threads' alertable
    // waits.
    void SoundDue();
    // Runs the routines that wait for the calling thread; whether there was any.
    bool RunDueRoutines();

    unsigned ArmedCount() const;

private:
    std::vector<TimerPtr> All() const;
    TimerPtr FirstDueRoutine() const;
    std::int64_t VirtualDue(const CTimer& timer) const;

    CScheduler& m_scheduler;
    const std::int64_t& m_utcAtStart;
    std::vector<std::weak_ptr<CTimer>> m_timers;
    std::uint64_t m_armed = 0; // how often a timer was armed
};

} // namespace platform::sim
