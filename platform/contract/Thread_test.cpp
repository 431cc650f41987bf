#include "platform/Thread.h"

#include "platform/contract/ContractTest.h"
#include "platform/LastError.h"

#include <atomic>

using namespace platform;

namespace contract {
namespace {

class ThreadContract : public ContractTest {};

// A thread that waits for an event, and what it tells.
struct Gate {
    WaitHandle event = CreateNamedEvent(ObjectName(L"ThreadContractGate").c_str(), nullptr);
    std::atomic<int> passed = 0;
};

DWORD PassGate(void* gate)
{
    auto* const waiting = static_cast<Gate*>(gate);
    EXPECT_EQ(WaitForOne(waiting->event, INFINITE, FALSE), WAIT_OBJECT_0);
    ++waiting->passed;
    return 0;
}

TEST_F(ThreadContract, AThreadRunsItsEntryWithItsArgument)
{
    int number = 1;
    const ThreadPtr thread = StartThread(
        [](void* argument) -> DWORD {
            *static_cast<int*>(argument) = 2;
            return 0;
        },
        &number);
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(WaitForThread(thread, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(number, 2);
}

TEST_F(ThreadContract, TheArgumentMayBeNull)
{
    static std::atomic<bool> wasNull;
    wasNull = false;
    const ThreadPtr thread = StartThread(
        [](void* argument) -> DWORD {
            wasNull = argument == nullptr;
            return 7;
        },
        nullptr);
    EXPECT_EQ(WaitForThread(thread, INFINITE), WAIT_OBJECT_0);
    EXPECT_TRUE(wasNull);
}

TEST_F(ThreadContract, AWaitTimesOutWhileTheThreadRuns)
{
    Gate gate;
    const ThreadPtr thread = StartThread(PassGate, &gate);
    EXPECT_EQ(WaitForThread(thread, 0), WAIT_TIMEOUT);
    const std::int64_t startMs = ClockMs();
    EXPECT_EQ(WaitForThread(thread, 60), WAIT_TIMEOUT);
    EXPECT_GE(ClockMs() - startMs, 60 - kEarlyMs);
    EXPECT_EQ(gate.passed, 0);
    EXPECT_TRUE(SetNamedEvent(gate.event));
    EXPECT_EQ(WaitForThread(thread, kLongMs), WAIT_OBJECT_0);
}

TEST_F(ThreadContract, AThreadThatHasEndedStaysEnded)
{
    const ThreadPtr thread = StartThread([](void*) -> DWORD { return 0; }, nullptr);
    EXPECT_EQ(WaitForThread(thread, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForThread(thread, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForThread(thread, INFINITE), WAIT_OBJECT_0);
}

// Waits alertably for an event, twice with each time-out, and says how each wait ended.
struct Waits {
    WaitHandle event = CreateNamedEvent(ObjectName(L"ThreadContractAwaited").c_str(), nullptr);
    std::vector<DWORD> timeoutsMs;
    WaitHandle begins = {}; // not null: waited for, not alertably, before the first wait
    std::vector<DWORD> results = {};
};

DWORD WaitAlertably(void* argument)
{
    auto* const waits = static_cast<Waits*>(argument);
    if (waits->begins) {
        EXPECT_EQ(WaitForOne(waits->begins, kLongMs, FALSE), WAIT_OBJECT_0);
    }
    for (const DWORD timeoutMs : waits->timeoutsMs) {
        waits->results.push_back(WaitForOne(waits->event, timeoutMs, TRUE));
        waits->results.push_back(WaitForAny({&waits->event, 1}, timeoutMs, TRUE));
    }
    return 0;
}

TEST_F(ThreadContract, InterruptEndsAnAlertableWaitThatTakesNothingMore)
{
    Waits waits{.timeoutsMs = {INFINITE}};
    const ThreadPtr thread = StartThread(WaitAlertably, &waits);
    LetPass(10);
    EXPECT_EQ(WaitForThread(thread, 0), WAIT_TIMEOUT);
    InterruptWait(thread);
    EXPECT_TRUE(SetNamedEvent(waits.event));
    // The second wait takes the signal that the first one has left.
    EXPECT_EQ(WaitForThread(thread, kLongMs), WAIT_OBJECT_0);
    EXPECT_EQ(waits.results, (std::vector<DWORD>{WAIT_IO_COMPLETION, WAIT_OBJECT_0}));
}

TEST_F(ThreadContract, InterruptBetweenWaitsEndsTheNextAlertableOneOnly)
{
    Waits waits{.timeoutsMs = {5, 0}, .begins = CreateNamedEvent(ObjectName(L"ThreadContractBegins").c_str(), nullptr)};
    const ThreadPtr thread = StartThread(WaitAlertably, &waits);
    LetPass(10);
    InterruptWait(thread);
    EXPECT_EQ(WaitForThread(thread, 10), WAIT_TIMEOUT);
    EXPECT_TRUE(SetNamedEvent(waits.event)); // which it leaves to the wait after it
    EXPECT_TRUE(SetNamedEvent(waits.begins));
    EXPECT_EQ(WaitForThread(thread, kLongMs), WAIT_OBJECT_0);
    EXPECT_EQ(waits.results, (std::vector<DWORD>{WAIT_IO_COMPLETION, WAIT_OBJECT_0, WAIT_TIMEOUT, WAIT_TIMEOUT}));
}

TEST_F(ThreadContract, InterruptOfAThreadThatHasEndedAndOfNoneDoesNothing)
{
    const ThreadPtr thread = StartThread([](void*) -> DWORD { return 0; }, nullptr);
    EXPECT_EQ(WaitForThread(thread, kLongMs), WAIT_OBJECT_0);
    InterruptWait(thread);
    InterruptWait(nullptr);
    EXPECT_EQ(WaitForThread(thread, 0), WAIT_OBJECT_0);
}

TEST_F(ThreadContract, SeveralThreadsMayWaitForOne)
{
    Gate gate;
    const ThreadPtr thread = StartThread(PassGate, &gate);
    DWORD results[2] = {WAIT_FAILED, WAIT_FAILED};
    {
        const CRunningThread first([&] { results[0] = WaitForThread(thread, INFINITE); });
        const CRunningThread second([&] { results[1] = WaitForThread(thread, INFINITE); });
        LetPass(5);
        EXPECT_TRUE(SetNamedEvent(gate.event));
    }
    EXPECT_EQ(results[0], WAIT_OBJECT_0);
    EXPECT_EQ(results[1], WAIT_OBJECT_0);
}

TEST_F(ThreadContract, WaitingForNoThreadFails)
{
    SetLastErrorCode(0);
    EXPECT_EQ(WaitForThread(nullptr, 0), WAIT_FAILED);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
}

TEST_F(ThreadContract, DroppingTheLastReferenceLetsTheThreadGoOn)
{
    Gate gate;
    ThreadPtr thread = StartThread(PassGate, &gate);
    thread.reset();
    LetPass(5);
    EXPECT_EQ(gate.passed, 0);
    EXPECT_TRUE(SetNamedEvent(gate.event));
    for (DWORD passedMs = 0; gate.passed == 0 && passedMs < kLongMs; ++passedMs) {
        LetPass(1);
    }
    EXPECT_EQ(gate.passed, 1);
    LetPass(5);
}

TEST_F(ThreadContract, IdentifiersTellThreadsApart)
{
    DWORD otherThread = 0;
    DWORD otherProcess = 0;
    CRunningThread([&] {
        otherThread = CurrentThreadIdentifier();
        otherProcess = CurrentProcessIdentifier();
    }).Join();
    EXPECT_NE(CurrentThreadIdentifier(), 0U);
    EXPECT_NE(otherThread, 0U);
    EXPECT_NE(otherThread, CurrentThreadIdentifier());
    EXPECT_EQ(CurrentThreadIdentifier(), CurrentThreadIdentifier());
    EXPECT_NE(CurrentProcessIdentifier(), 0U);
    EXPECT_EQ(otherProcess, CurrentProcessIdentifier());
}

} // namespace
} // namespace contract
