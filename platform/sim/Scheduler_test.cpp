#include "platform/Clock.h"
#include "platform/CriticalSection.h"
#include "platform/LastError.h"
#include "platform/sim/Machine.h"
#include "platform/Sync.h"
#include "testing/TestThread.h"

#include <gmock/gmock.h>

namespace platform::sim {
namespace {

using testing::ElementsAre;
using testing_support::StartBody;

TEST(SimScheduler, StartedThreadsRunInTheOrderOfTheirStart)
{
    CMachine machine;
    std::vector<int> order;
    for (int i = 1; i <= 3; ++i) {
        StartBody([&order, i] { order.push_back(i); });
    }
    EXPECT_TRUE(order.empty());
    machine.RunUntilIdle();
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

TEST(SimScheduler, WokenThreadsGoOnInTheOrderInWhichTheyBecameReady)
{
    CMachine machine;
    const WaitHandle first = CreateNamedEvent(L"first", nullptr);
    const WaitHandle second = CreateNamedEvent(L"second", nullptr);
    std::vector<int> order;
    StartBody([&] {
        WaitForOne(first, INFINITE, FALSE);
        order.push_back(1);
    });
    StartBody([&] {
        WaitForOne(second, INFINITE, FALSE);
        order.push_back(2);
    });
    machine.RunUntilIdle();
    SetNamedEvent(second);
    SetNamedEvent(first);
    machine.RunUntilIdle();
    EXPECT_THAT(order, ElementsAre(2, 1));
}

TEST(SimScheduler, WaitThatIsSatisfiedAtOnceLetsNobodyElseRun)
{
    CMachine machine;
    bool otherRan = false;
    StartBody([&] { otherRan = true; });
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    const WaitHandle mutex = CreateNamedMutex(L"mutex", FALSE, nullptr);
    SetNamedEvent(event);
    EXPECT_EQ(WaitForOne(event, INFINITE, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForOne(mutex, INFINITE, TRUE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
    CCriticalSection lock;
    lock.Enter();
    lock.Leave();
    EXPECT_FALSE(otherRan);
    machine.RunUntilIdle();
    EXPECT_TRUE(otherRan);
}

TEST(SimScheduler, ClockStandsStillWhileAnyThreadIsReady)
{
    CMachine machine;
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    std::vector<std::int64_t> seen;
    StartBody([&] { seen.push_back(machine.ElapsedMs()); });
    StartBody([&] { seen.push_back(machine.ElapsedMs()); });
    EXPECT_EQ(WaitForOne(event, 500, FALSE), WAIT_TIMEOUT);
    seen.push_back(machine.ElapsedMs());
    EXPECT_THAT(seen, ElementsAre(0, 0, 500));
}

TEST(SimScheduler, ClockJumpsToTheEarliestDeadline)
{
    CMachine machine;
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    std::vector<std::int64_t> seen;
    for (const DWORD timeoutMs : {3'000U, 1'000U, 2'000U}) {
        StartBody([&, timeoutMs] {
            EXPECT_EQ(WaitForOne(event, timeoutMs, FALSE), WAIT_TIMEOUT);
            seen.push_back(machine.ElapsedMs());
        });
    }
    machine.RunFor(10'000);
    EXPECT_THAT(seen, ElementsAre(1'000, 2'000, 3'000));
    EXPECT_EQ(machine.ElapsedMs(), 10'000);
}

TEST(SimScheduler, DeadlinesAtTheSameTimeEndInTheOrderInWhichTheWaitsBegan)
{
    CMachine machine;
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    std::vector<int> order;
    for (int i = 1; i <= 3; ++i) {
        StartBody([&, i] {
            WaitForOne(event, 1'000, FALSE);
            order.push_back(i);
        });
    }
    machine.RunFor(1'000);
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

TEST(SimScheduler, RunForEndsAfterWhatIsDueAtItsEnd)
{
    CMachine machine;
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    int steps = 0;
    StartBody([&] {
        for (int i = 0; i < 3; ++i) {
            WaitForOne(event, 100, FALSE);
            ++steps;
        }
    });
    machine.RunFor(200);
    EXPECT_EQ(steps, 2);
    EXPECT_EQ(machine.ElapsedMs(), 200);
    machine.RunFor(100);
    EXPECT_EQ(steps, 3);
}

TEST(SimScheduler, RunUntilIdleLetsNoTimePass)
{
    CMachine machine;
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    bool timedOut = false;
    StartBody([&] { timedOut = WaitForOne(event, 1, FALSE) == WAIT_TIMEOUT; });
    machine.RunUntilIdle();
    EXPECT_FALSE(timedOut);
    EXPECT_EQ(machine.ElapsedMs(), 0);
    machine.RunFor(1);
    EXPECT_TRUE(timedOut);
}

TEST(SimScheduler, WaitForThreadReturnsAtItsEndOrItsTimeOut)
{
    CMachine machine;
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    const ThreadPtr thread = StartBody([&] { WaitForOne(event, 150, FALSE); });
    EXPECT_EQ(WaitForThread(thread, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForThread(thread, 100), WAIT_TIMEOUT);
    EXPECT_EQ(machine.ElapsedMs(), 100);
    EXPECT_EQ(WaitForThread(thread, 100), WAIT_OBJECT_0);
    EXPECT_EQ(machine.ElapsedMs(), 150);
    EXPECT_EQ(WaitForThread(thread, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForThread(nullptr, INFINITE), WAIT_FAILED);
    EXPECT_EQ(GetLastErrorCode(), ERROR_INVALID_HANDLE);
}

TEST(SimScheduler, ThreadsHaveIdentifiersAndLastErrorsOfTheirOwn)
{
    CMachine machine;
    SetLastErrorCode(5);
    std::vector<DWORD> seen{CurrentProcessIdentifier(), CurrentThreadIdentifier()};
    for (int i = 0; i < 2; ++i) {
        WaitForThread(StartBody([&] {
                          seen.push_back(CurrentProcessIdentifier());
                          seen.push_back(CurrentThreadIdentifier());
                          seen.push_back(GetLastErrorCode());
                          SetLastErrorCode(7);
                      }),
                      INFINITE);
    }
    EXPECT_THAT(seen, ElementsAre(1000, 1, 1000, 2, 0, 1000, 3, 0));
    EXPECT_EQ(GetLastErrorCode(), 5U);
}

// A few threads that contend in every way there is; what they did, in order.
std::vector<int> RunTangle()
{
    CMachine machine;
    std::vector<int> steps;
    const WaitHandle mutex = CreateNamedMutex(L"mutex", FALSE, nullptr);
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    CCriticalSection lock;
    for (int i = 0; i < 5; ++i) {
        StartBody([&, i] {
            for (int round = 0; round < 20; ++round) {
                lock.Enter();
                steps.push_back(i);
                WaitForOne(event, static_cast<DWORD>(1 + (i * round) % 3), FALSE);
                lock.Leave();
                WaitForOne(mutex, INFINITE, FALSE);
                steps.push_back(10 + i);
                SetNamedEvent(event);
                WaitForAny(std::array{event}, 1, FALSE);
                ReleaseOwnedMutex(mutex);
            }
        });
    }
    machine.RunFor(10'000);
    steps.push_back(static_cast<int>(machine.ElapsedMs()));
    return steps;
}

TEST(SimScheduler, SameThreadsRunTheSameWayEveryTime)
{
    const std::vector<int> first = RunTangle();
    EXPECT_EQ(first.size(), 201U);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(RunTangle(), first);
    }
}

TEST(SimScheduler, NextMachineBeginsAnew)
{
    for (int i = 0; i < 2; ++i) {
        CMachine machine;
        EXPECT_EQ(machine.ElapsedMs(), 0);
        EXPECT_EQ(GetLastErrorCode(), 0U);
        EXPECT_EQ(CurrentThreadIdentifier(), 1U);
        SetLastErrorCode(5);
        machine.RunFor(100);
    }
}

TEST(SimCriticalSection, IsHandedToThreadsInTheOrderInWhichTheyCame)
{
    CMachine machine;
    CCriticalSection lock;
    std::vector<int> order;
    lock.Enter();
    lock.Enter();
    for (int i = 1; i <= 2; ++i) {
        StartBody([&, i] {
            lock.Enter();
            order.push_back(i);
            lock.Leave();
        });
    }
    machine.RunUntilIdle();
    lock.Leave();
    machine.RunUntilIdle();
    EXPECT_TRUE(order.empty());
    lock.Leave();
    lock.Enter();
    EXPECT_THAT(order, ElementsAre(1, 2));
    lock.Leave();
}

class SimDeathTest : public testing::Test {
protected:
    SimDeathTest() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

TEST_F(SimDeathTest, DeadlockIsReportedWithWhatEveryThreadWaitsFor)
{
    EXPECT_DEATH(
        {
            CMachine machine;
            const WaitHandle mutex = CreateNamedMutex(L"held", TRUE, nullptr);
            const WaitHandle event = CreateNamedEvent(L"never", nullptr);
            CCriticalSection lock;
            lock.Enter();
            StartBody([&] { WaitForAny(std::array{mutex, event}, INFINITE, FALSE); });
            StartBody([&] { lock.Enter(); });
            machine.RunFor(1'000);
            WaitForOne(event, INFINITE, TRUE);
        },
        "deadlock after 1000 ms:\n"
        "  thread 2 waits for mutex \"held\" .owned by thread 1 of process 1000. or event \"never\"\n"
        "  thread 3 waits for a critical section that thread 1 is inside\n"
        "  thread 1 waits for event \"never\"");
}

TEST_F(SimDeathTest, MachineThatEndsBeforeItsThreadsIsReported)
{
    EXPECT_DEATH(
        {
            CMachine machine;
            const WaitHandle event = CreateNamedEvent(L"never", nullptr);
            StartBody([&] { WaitForOne(event, INFINITE, FALSE); });
            machine.RunUntilIdle();
        },
        "it ends before all its threads: thread 2 waits for event \"never\"");
}

TEST_F(SimDeathTest, PlatformCallWithoutMachineIsReported)
{
    EXPECT_DEATH(ReadTime(), "there is none");
    EXPECT_DEATH(GetLastErrorCode(), "belongs to no machine");
}

TEST_F(SimDeathTest, LeavingACriticalSectionOfAnotherThreadIsReported)
{
    EXPECT_DEATH(
        {
            CMachine machine;
            CCriticalSection lock;
            lock.Leave();
        },
        "left by a thread that is not inside");
}

} // namespace
} // namespace platform::sim
