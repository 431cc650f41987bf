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

    CMachine m_machine;
    const WaitHandle m_event = CreateNamedEvent(L"event", nullptr);
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
    const TimerPtr timer = MakeTimer();
    EXPECT_TRUE(Arm(timer, -1'500 * kMs, 1));
    EXPECT_EQ(m_machine.ArmedTimerCount(), 1U);
    EXPECT_EQ(WaitForOne(m_event, INFINITE, TRUE), WAIT_IO_COMPLETION);
    EXPECT_EQ(m_machine.ElapsedMs(), 1'500);
    EXPECT_THAT(m_ran, ElementsAre(1));
    EXPECT_EQ(m_machine.ArmedTimerCount(), 0U);
    EXPECT_EQ(WaitForOne(m_event, 5'000, TRUE), WAIT_TIMEOUT) << "a timer falls due once";
}

TEST_F(SimTimer, WaitBelowAMillisecondStillTakesTime)
{
    const TimerPtr timer = MakeTimer();
    Arm(timer, -(kMs + 1), 1);
    EXPECT_EQ(WaitForOne(m_event, 1, TRUE), WAIT_TIMEOUT);
    EXPECT_TRUE(m_ran.empty());
    EXPECT_EQ(WaitForOne(m_event, 1, TRUE), WAIT_IO_COMPLETION);
}

TEST_F(SimTimer, SignalledObjectComesBeforeADueRoutine)
{
    const TimerPtr timer = MakeTimer();
    Arm(timer, 0, 1);
    SetNamedEvent(m_event);
    EXPECT_EQ(WaitForOne(m_event, INFINITE, TRUE), WAIT_OBJECT_0);
    EXPECT_TRUE(m_ran.empty());
    EXPECT_EQ(WaitForOne(m_event, INFINITE, TRUE), WAIT_IO_COMPLETION);
}

TEST_F(SimTimer, PulseMissesAThreadWhoseWaitARoutineHasEnded)
{
    const TimerPtr timer = MakeTimer();
    DWORD result = WAIT_FAILED;
    StartBody([&] {
        Arm(timer, kStart + 3'600'000 * kMs, 1);
        result = WaitForOne(m_event, INFINITE, TRUE);
    });
    m_machine.RunUntilIdle();
    m_machine.SetLocalClock({2012, 7, 1, 2, 15, 0, 0, 0});
    PulseNamedEvent(m_event);
    m_machine.RunUntilIdle();
    EXPECT_EQ(result, WAIT_IO_COMPLETION);
    EXPECT_EQ(WaitForOne(m_event, 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(SimTimer, TimerOfAThreadThatEndedNeverFallsDue)
{
    const TimerPtr timer = MakeTimer();
    WaitForThread(StartBody([&] { Arm(timer, -1'000 * kMs, 1); }), INFINITE);
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
    const TimerPtr timer = MakeTimer();
    for (const std::int64_t due : {std::int64_t{0}, std::int64_t{1}, kStart - 1, kStart}) {
        Arm(timer, due, 1);
        EXPECT_EQ(WaitForOne(m_event, 0, TRUE), WAIT_IO_COMPLETION) << due;
    }
}

TEST_F(SimTimer, AbsoluteTimerFollowsTheClockForward)
{
    const TimerPtr timer = MakeTimer();
    Arm(timer, kStart + 3'600'000 * kMs, 1);
    m_machine.RunFor(1'000);
    m_machine.SetLocalClock({2012, 7, 1, 2, 13, 59, 59, 0});
    EXPECT_EQ(WaitForOne(m_event, INFINITE, TRUE), WAIT_IO_COMPLETION);
    EXPECT_EQ(m_machine.ElapsedMs(), 2'000);
}

TEST_F(SimTimer, AbsoluteTimerFollowsTheClockBack)
{
    const TimerPtr timer = MakeTimer();
    Arm(timer, kStart + 3'600'000 * kMs, 1);
    m_machine.SetLocalClock({2012, 7, 1, 2, 12, 0, 0, 0});
    EXPECT_EQ(WaitForOne(m_event, INFINITE, TRUE), WAIT_IO_COMPLETION);
    EXPECT_EQ(m_machine.ElapsedMs(), 7'200'000);
}

TEST_F(SimTimer, ClockSetPastTheDueTimeEndsAWaitThatIsGoingOn)
{
    const TimerPtr timer = MakeTimer();
    DWORD result = WAIT_FAILED;
    StartBody([&] {
        Arm(timer, kStart + 3'600'000 * kMs, 1);
        result = WaitForOne(m_event, INFINITE, TRUE);
    });
    m_machine.RunUntilIdle();
    m_machine.SetLocalClock({2012, 7, 1, 2, 15, 0, 0, 0});
    m_machine.RunUntilIdle();
    EXPECT_EQ(result, WAIT_IO_COMPLETION);
    EXPECT_EQ(m_machine.ElapsedMs(), 0);
}

TEST_F(SimTimer, RelativeTimerAndTimeOutIgnoreTheClock)
{
    const TimerPtr timer = MakeTimer();
    Arm(timer, -2'000 * kMs, 1);
    m_machine.SetLocalClock({2013, 1, 2, 1, 0, 0, 0, 0});
    EXPECT_EQ(WaitForOne(m_event, 1'000, TRUE), WAIT_TIMEOUT);
    m_machine.SetLocalClock({2011, 1, 6, 1, 0, 0, 0, 0});
    EXPECT_EQ(WaitForOne(m_event, INFINITE, TRUE), WAIT_IO_COMPLETION);
    EXPECT_EQ(m_machine.ElapsedMs(), 2'000);
}

TEST_F(SimTimer, UtcOffsetDoesNotMoveAbsoluteTimers)
{
    const TimerPtr timer = MakeTimer();
    Arm(timer, kStart + 1'000 * kMs, 1);
    m_machine.SetUtcOffset(-300);
    EXPECT_EQ(WaitForOne(m_event, INFINITE, TRUE), WAIT_IO_COMPLETION);
    EXPECT_EQ(m_machine.ElapsedMs(), 1'000);
}

TEST_F(SimTimer, RoutineMayDisarmAnotherThatIsDue)
{
    struct Pair {
        TimerPtr timer;
        int ran;
    } other{MakeTimer(), 0};
    const TimerPtr first = MakeTimer();
    LARGE_INTEGER due;
    due.QuadPart = -1 * kMs;
    ArmTimer(
        first, &due, [](void* argument, DWORD, DWORD) { static_cast<Pair*>(argument)->timer.reset(); }, &other);
    ArmTimer(
        other.timer, &due, [](void* argument, DWORD, DWORD) { ++static_cast<Pair*>(argument)->ran; }, &other);
    EXPECT_EQ(WaitForOne(m_event, INFINITE, TRUE), WAIT_IO_COMPLETION);
    EXPECT_EQ(WaitForOne(m_event, 0, TRUE), WAIT_TIMEOUT);
    EXPECT_EQ(other.ran, 0);
}

} // namespace
} // namespace platform::sim
