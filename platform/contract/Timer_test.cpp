#include "platform/Timer.h"

#include "platform/contract/ContractTest.h"
#include "platform/LastError.h"

using namespace platform;

namespace contract {
namespace {

constexpr LONGLONG kUnitsPerMs = 10000;
constexpr LONGLONG kUnitsPerHour = 3600 * 1000 * kUnitsPerMs;
constexpr LONGLONG kEpochUnits = 116444736000000000; // 1970-01-01 on the FILETIME scale

LARGE_INTEGER DueTime(LONGLONG units)
{
    LARGE_INTEGER dueTime = {};
    dueTime.QuadPart = units;
    return dueTime;
}

// Counts the runs of a timer's routine and notes the thread.
struct Runs {
    int count = 0;
    DWORD thread = 0;
};

void CountRun(void* runs, DWORD, DWORD)
{
    ++static_cast<Runs*>(runs)->count;
    static_cast<Runs*>(runs)->thread = CurrentThreadIdentifier();
}

class TimerContract : public ContractTest {
protected:
    void SetUp() override
    {
        ContractTest::SetUp();
        m_never = CreateNamedEvent(ObjectName(L"Never").c_str(), nullptr);
        m_timer = MakeTimer();
        ASSERT_NE(m_timer, nullptr);
    }
    void TearDown() override
    {
        m_timer.reset();
        m_never.reset();
        ContractTest::TearDown();
    }

    void Arm(LONGLONG units, Runs* runs)
    {
        const LARGE_INTEGER dueTime = DueTime(units);
        EXPECT_TRUE(ArmTimer(m_timer, &dueTime, CountRun, runs));
    }
    DWORD WaitAlertably(DWORD timeoutMs) { return WaitForOne(m_never, timeoutMs, TRUE); }
    void ExpectNothingDue(const Runs& runs)
    {
        EXPECT_EQ(WaitAlertably(20), WAIT_TIMEOUT);
        EXPECT_EQ(runs.count, 0);
    }

    WaitHandle m_never; // an event that nobody sets
    TimerPtr m_timer;
};

TEST_F(TimerContract, ARelativeTimerRunsItsRoutineOnTheArmingThreadAndEndsTheWait)
{
    Runs runs;
    const std::int64_t startMs = ClockMs();
    Arm(-60 * kUnitsPerMs, &runs);
    EXPECT_EQ(WaitAlertably(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_GE(ClockMs() - startMs, 60 - kEarlyMs);
    EXPECT_EQ(runs.count, 1);
    EXPECT_EQ(runs.thread, CurrentThreadIdentifier());
}

TEST_F(TimerContract, AnAbsoluteTimerIsDueAtItsUtcTime)
{
    Runs runs;
    // Somewhere within the second after next.
    const std::int64_t start = ReadTime();
    Arm(kEpochUnits + (start + 2) * 1000 * kUnitsPerMs, &runs);
    EXPECT_EQ(WaitAlertably(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_GE(ReadTime() - start, 1);
    EXPECT_EQ(runs.count, 1);
}

TEST_F(TimerContract, APastOrZeroDueTimeIsDueAtOnce)
{
    const LONGLONG hourAgo = kEpochUnits + ReadTime() * 1000 * kUnitsPerMs - kUnitsPerHour;
    for (const LONGLONG units : {hourAgo, LONGLONG{1}, LONGLONG{0}, LONGLONG{-1}}) {
        Runs runs;
        Arm(units, &runs);
        EXPECT_EQ(WaitAlertably(kLongMs), WAIT_IO_COMPLETION) << units;
        EXPECT_EQ(runs.count, 1) << units;
    }
}

TEST_F(TimerContract, ATimerIsDueOnce)
{
    Runs runs;
    Arm(-1, &runs);
    EXPECT_EQ(WaitAlertably(kLongMs), WAIT_IO_COMPLETION);
    EXPECT_EQ(WaitAlertably(20), WAIT_TIMEOUT);
    EXPECT_EQ(runs.count, 1);
}

TEST_F(TimerContract, TheRoutineWaitsForAnAlertableWait)
{
    Runs runs;
    Arm(-1, &runs);
    LetPass(20);
    EXPECT_EQ(WaitForOne(m_never, 20, FALSE), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForAny({&m_never, 1}, 20, FALSE), WAIT_TIMEOUT);
    EXPECT_EQ(runs.count, 0);
    EXPECT_EQ(WaitAlertably(kLongMs), WAIT_IO_COMPLETION);
    EXPECT_EQ(runs.count, 1);
}

TEST_F(TimerContract, OnlyTheArmingThreadRunsTheRoutine)
{
    Runs runs;
    const WaitHandle armed = CreateNamedEvent(ObjectName(L"Armed").c_str(), nullptr);
    const WaitHandle goOn = CreateNamedEvent(ObjectName(L"GoOn").c_str(), nullptr);
    DWORD otherThread = 0;
    CRunningThread other([&] {
        otherThread = CurrentThreadIdentifier();
        Arm(-1, &runs);
        EXPECT_TRUE(SetNamedEvent(armed));
        EXPECT_EQ(WaitForOne(goOn, INFINITE, FALSE), WAIT_OBJECT_0);
        EXPECT_EQ(WaitAlertably(kLongMs), WAIT_IO_COMPLETION);
    });
    EXPECT_EQ(WaitForOne(armed, INFINITE, FALSE), WAIT_OBJECT_0);
    ExpectNothingDue(runs);
    EXPECT_TRUE(SetNamedEvent(goOn));
    other.Join();
    EXPECT_EQ(runs.count, 1);
    EXPECT_EQ(runs.thread, otherThread);
}

TEST_F(TimerContract, ArmingAgainReplacesTheDueTime)
{
    Runs first;
    Runs second;
    Arm(-kUnitsPerHour, &first);
    Arm(-kUnitsPerMs, &second);
    EXPECT_EQ(WaitAlertably(kLongMs), WAIT_IO_COMPLETION);
    EXPECT_EQ(first.count, 0);
    EXPECT_EQ(second.count, 1);
}

TEST_F(TimerContract, ArmingAgainDropsARoutineThatIsDue)
{
    Runs runs;
    Arm(-1, &runs);
    LetPass(20);
    Arm(-kUnitsPerHour, &runs);
    ExpectNothingDue(runs);
}

TEST_F(TimerContract, ADisarmedTimerIsNeverDue)
{
    Runs runs;
    Arm(-5 * kUnitsPerMs, &runs);
    EXPECT_TRUE(DisarmTimer(m_timer));
    ExpectNothingDue(runs);
}

TEST_F(TimerContract, DisarmingDropsARoutineThatIsDue)
{
    Runs runs;
    Arm(-1, &runs);
    LetPass(20);
    EXPECT_TRUE(DisarmTimer(m_timer));
    ExpectNothingDue(runs);
}

TEST_F(TimerContract, DisarmingAnUnarmedTimerSucceeds)
{
    EXPECT_TRUE(DisarmTimer(m_timer));
    Runs runs;
    Arm(-1, &runs);
    EXPECT_EQ(WaitAlertably(kLongMs), WAIT_IO_COMPLETION);
    EXPECT_TRUE(DisarmTimer(m_timer)) << "already due";
    EXPECT_TRUE(DisarmTimer(m_timer));
}

TEST_F(TimerContract, ADisarmedTimerMayBeArmedAgain)
{
    Runs runs;
    Arm(-kUnitsPerHour, &runs);
    EXPECT_TRUE(DisarmTimer(m_timer));
    Arm(-1, &runs);
    EXPECT_EQ(WaitAlertably(kLongMs), WAIT_IO_COMPLETION);
    EXPECT_EQ(runs.count, 1);
}

TEST_F(TimerContract, TheLastReferenceDisarmsTheTimer)
{
    Runs runs;
    Arm(-5 * kUnitsPerMs, &runs);
    TimerPtr copy = m_timer;
    m_timer.reset();
    EXPECT_EQ(WaitAlertably(kLongMs), WAIT_IO_COMPLETION) << "a copy keeps it armed";
    EXPECT_EQ(runs.count, 1);

    Runs later;
    const LARGE_INTEGER dueTime = DueTime(-1);
    EXPECT_TRUE(ArmTimer(copy, &dueTime, CountRun, &later));
    LetPass(20);
    copy.reset();
    ExpectNothingDue(later);
}

TEST_F(TimerContract, OneWaitRunsAllRoutinesThatAreDue)
{
    Runs first;
    Runs second;
    const TimerPtr other = MakeTimer();
    const LARGE_INTEGER dueTime = DueTime(-1);
    EXPECT_TRUE(ArmTimer(other, &dueTime, CountRun, &second));
    Arm(-1, &first);
    LetPass(20);
    EXPECT_EQ(WaitAlertably(kLongMs), WAIT_IO_COMPLETION);
    EXPECT_EQ(first.count, 1);
    EXPECT_EQ(second.count, 1);
    EXPECT_EQ(WaitAlertably(0), WAIT_TIMEOUT);
}

TEST_F(TimerContract, ARoutineMayDisarmAnotherThatIsDue)
{
    struct Timers {
        TimerPtr first;
        TimerPtr second = MakeTimer();
        int runs = 0;
    };
    Timers timers = {.first = m_timer};
    const auto routine = [](void* argument, DWORD, DWORD) {
        auto* const both = static_cast<Timers*>(argument);
        ++both->runs;
        EXPECT_TRUE(DisarmTimer(both->first));
        both->second.reset();
    };
    const LARGE_INTEGER dueTime = DueTime(-1);
    EXPECT_TRUE(ArmTimer(timers.first, &dueTime, routine, &timers));
    EXPECT_TRUE(ArmTimer(timers.second, &dueTime, routine, &timers));
    LetPass(20);
    EXPECT_EQ(WaitAlertably(kLongMs), WAIT_IO_COMPLETION);
    EXPECT_EQ(timers.runs, 1);
    EXPECT_EQ(WaitAlertably(5), WAIT_TIMEOUT);
}

TEST_F(TimerContract, ANullTimerFails)
{
    Runs runs;
    const LARGE_INTEGER dueTime = DueTime(-1);
    EXPECT_TRUE(FailsWith(ERROR_INVALID_HANDLE, [&] { return ArmTimer(nullptr, &dueTime, CountRun, &runs); }));
    EXPECT_TRUE(FailsWith(ERROR_INVALID_HANDLE, [&] { return DisarmTimer(nullptr); }));
}

} // namespace
} // namespace contract
