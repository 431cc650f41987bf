#include "platform/sim/Machine.h"
#include "platform/Sync.h"
#include "platform/Timer.h"
#include "testing/TestThread.h"

#include <gmock/gmock.h>

namespace platform::sim {
namespace {

using testing::ElementsAre;
using testing_support::StartBody;

constexpr std::int64_t kMs = 10'000;
// 2012-07-02 04:00:00 UTC, at which a machine starts.
constexpr std::int64_t kStart = 129'856'752'000'000'000;

class SimTimer : public testing::Test {
protected:
    // Arms a timer whose routine adds name to the list of those that ran.
    BOOL Arm(const TimerPtr& timer, std::int64_t dueTime, int name)
    {
        m_names.push_back(std::make_unique<Name>(Name{this, name}));
        LARGE_INTEGER due;
        due.QuadPart = dueTime;
        return ArmTimer(
            timer, &due,
            [](void* argument, DWORD, DWORD) {
                const auto* named = static_cast<Name*>(argument);
                named->test->m_ran.push_back(named->name);
            },
            m_names.back().get());
    }

    // Starts a thread whose wait the clock, set past a timer's due time, ends.
    void StartWaitPastItsTime()
    {
        StartBody([this] {
            Arm(m_timer, kStart + 3'600'000 * kMs, 1);
            m_result = WaitForOne(m_event, INFINITE, TRUE);
        });
        m_machine.RunUntilIdle();
        m_machine.SetLocalClock({2012, 7, 1, 2, 15, 0, 0, 0});
    }

    CMachine m_machine;
    DWORD m_result = WAIT_FAILED; // of that wait
    const WaitHandle m_event = CreateNamedEvent(L"event", nullptr);
    const TimerPtr m_timer = MakeTimer();
    std::vector<int> m_ran;

private:
    struct Name {
        SimTimer* test;
        int name;
    };
    std::vector<std::unique_ptr<Name>> m_names;
};

TEST_F(SimTimer, RelativeTimerEndsAnAlertableWaitAtItsDueTime)
{
    EXPECT_TRUE(Arm(m_timer, -1'500 * kMs, 1));
    EXPECT_EQ(m_machine.ArmedTimerCount(), 1U);
    EXPECT_EQ(WaitForOne(m_event, INFINITE, TRUE), WAIT_IO_COMPLETION);
    EXPECT_EQ(m_machine.ElapsedMs(), 1'500);
    EXPECT_THAT(m_ran, ElementsAre(1));
    EXPECT_EQ(m_machine.ArmedTimerCount(), 0U);
    EXPECT_EQ(WaitForOne(m_event, 5'000, TRUE), WAIT_TIMEOUT) << "a timer falls due once";
}

TEST_F(SimTimer, WaitBelowAMillisecondStillTakesTime)
{
    Arm(m_timer, -(kMs + 1), 1);
    EXPECT_EQ(WaitForOne(m_event, 1, TRUE), WAIT_TIMEOUT);
    EXPECT_TRUE(m_ran.empty());
    EXPECT_EQ(WaitForOne(m_event, 1, TRUE), WAIT_IO_COMPLETION);
}

TEST_F(SimTimer, SignalledObjectComesBeforeADueRoutine)
{
    Arm(m_timer, 0, 1);
    SetNamedEvent(m_event);
    EXPECT_EQ(WaitForOne(m_event, INFINITE, TRUE), WAIT_OBJECT_0);
    EXPECT_TRUE(m_ran.empty());
    EXPECT_EQ(WaitForOne(m_event, INFINITE, TRUE), WAIT_IO_COMPLETION);
}

TEST_F(SimTimer, PulseMissesAThreadWhoseWaitARoutineHasEnded)
{
    StartWaitPastItsTime();
    PulseNamedEvent(m_event);
    m_machine.RunUntilIdle();
    EXPECT_EQ(m_result, WAIT_IO_COMPLETION);
    EXPECT_EQ(WaitForOne(m_event, 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(SimTimer, TimerOfAThreadThatEndedNeverFallsDue)
{
    WaitForThread(StartBody([&] { Arm(m_timer, -1'000 * kMs, 1); }), INFINITE);
    EXPECT_EQ(m_machine.ArmedTimerCount(), 0U);
    EXPECT_EQ(WaitForOne(m_event, 2'000, TRUE), WAIT_TIMEOUT);
}

TEST_F(SimTimer, SeveralDueRoutinesRunInTheOrderOfTheirDueTimes)
{
    const TimerPtr late = MakeTimer();
    const TimerPtr early = MakeTimer();
    const TimerPtr alsoEarly = MakeTimer();
    Arm(late, -2'000 * kMs, 3);
    Arm(early, -1'000 * kMs, 1);
    Arm(alsoEarly, -1'000 * kMs, 2);
    m_machine.RunFor(3'000);
    EXPECT_EQ(WaitForOne(m_event, INFINITE, TRUE), WAIT_IO_COMPLETION);
    EXPECT_THAT(m_ran, ElementsAre(1, 2, 3));
}

TEST_F(SimTimer, AbsoluteDueTimeInThePastIsDueAtOnce)
{
    for (const std::int64_t due : {std::int64_t{0}, std::int64_t{1}, kStart - 1, kStart}) {
        Arm(m_timer, due, 1);
        EXPECT_EQ(WaitForOne(m_event, 0, TRUE), WAIT_IO_COMPLETION) << due;
    }
}

TEST_F(SimTimer, AbsoluteTimerFollowsTheClockForward)
{
    Arm(m_timer, kStart + 3'600'000 * kMs, 1);
    m_machine.RunFor(1'000);
    m_machine.SetLocalClock({2012, 7, 1, 2, 13, 59, 59, 0});
    EXPECT_EQ(WaitForOne(m_event, INFINITE, TRUE), WAIT_IO_COMPLETION);
    EXPECT_EQ(m_machine.ElapsedMs(), 2'000);
}

TEST_F(SimTimer, AbsoluteTimerFollowsTheClockBack)
{
    Arm(m_timer, kStart + 3'600'000 * kMs, 1);
    m_machine.SetLocalClock({2012, 7, 1, 2, 12, 0, 0, 0});
    EXPECT_EQ(WaitForOne(m_event, INFINITE, TRUE), WAIT_IO_COMPLETION);
    EXPECT_EQ(m_machine.ElapsedMs(), 7'200'000);
}

TEST_F(SimTimer, ClockSetPastTheDueTimeEndsAWaitThatIsGoingOn)
{
    StartWaitPastItsTime();
    m_machine.RunUntilIdle();
    EXPECT_EQ(m_result, WAIT_IO_COMPLETION);
    EXPECT_EQ(m_machine.ElapsedMs(), 0);
}

TEST_F(SimTimer, RelativeTimerAndTimeOutIgnoreTheClock)
{
    Arm(m_timer, -2'000 * kMs, 1);
    m_machine.SetLocalClock({2013, 1, 2, 1, 0, 0, 0, 0});
    EXPECT_EQ(WaitForOne(m_event, 1'000, TRUE), WAIT_TIMEOUT);
    m_machine.SetLocalClock({2011, 1, 6, 1, 0, 0, 0, 0});
    EXPECT_EQ(WaitForOne(m_event, INFINITE, TRUE), WAIT_IO_COMPLETION);
    EXPECT_EQ(m_machine.ElapsedMs(), 2'000);
}

TEST_F(SimTimer, UtcOffsetDoesNotMoveAbsoluteTimers)
{
    Arm(m_timer, kStart + 1'000 * kMs, 1);
    m_machine.SetUtcOffset(-300);
    EXPECT_EQ(WaitForOne(m_event, INFINITE, TRUE), WAIT_IO_COMPLETION);
    EXPECT_EQ(m_machine.ElapsedMs(), 1'000);
}

} // namespace
} // namespace platform::sim
