#include "platform/LastError.h"
#include "platform/Security.h"
#include "platform/sim/Machine.h"
#include "platform/Sync.h"
#include "testing/TestThread.h"

#include <gmock/gmock.h>

namespace platform::sim {
namespace {

using testing::ElementsAre;
using testing_support::StartBody;

TEST(SimEvent, PulseAndSetLetTheThreadGoOnThatHasWaitedLongest)
{
    CMachine machine;
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    std::vector<int> woken;
    for (int i = 1; i <= 3; ++i) {
        StartBody([&, i] {
            WaitForOne(event, INFINITE, FALSE);
            woken.push_back(i);
        });
    }
    machine.RunUntilIdle();
    PulseNamedEvent(event);
    machine.RunUntilIdle();
    EXPECT_THAT(woken, ElementsAre(1));
    SetNamedEvent(event);
    SetNamedEvent(event);
    machine.RunUntilIdle();
    EXPECT_THAT(woken, ElementsAre(1, 2, 3));
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
}

TEST(SimNamedObject, NameOfTheOtherKindIsRefused)
{
    CMachine machine;
    const WaitHandle mutex = CreateNamedMutex(L"name", FALSE, nullptr);
    EXPECT_EQ(CreateNamedEvent(L"name", nullptr), nullptr);
    EXPECT_EQ(GetLastErrorCode(), ERROR_INVALID_HANDLE);
    SetLastErrorCode(0);
    EXPECT_FALSE(SetNamedEvent(mutex));
    EXPECT_EQ(GetLastErrorCode(), ERROR_INVALID_HANDLE);
}

TEST(SimNamedObject, RemembersTheNullDaclOfItsMaking)
{
    CMachine machine;
    const SecurityDescriptorPtr descriptor = InitializeDescriptor();
    const WaitHandle closed = CreateNamedMutex(L"closed", FALSE, descriptor.get());
    SetNullDacl(descriptor);
    const WaitHandle open = CreateNamedMutex(L"open", FALSE, descriptor.get());
    EXPECT_FALSE(machine.NamedObjectHasNullDacl(L"closed"));
    EXPECT_TRUE(machine.NamedObjectHasNullDacl(L"open"));
    EXPECT_FALSE(machine.NamedObjectHasNullDacl(L"missing"));
}

TEST(SimNamedObject, WaitGoesOnWhenTheLastHandleIsClosed)
{
    CMachine machine;
    WaitHandle event = CreateNamedEvent(L"event", nullptr);
    DWORD result = WAIT_FAILED;
    StartBody([&] { result = WaitForOne(event, 1'000, FALSE); });
    machine.RunUntilIdle();
    event.reset();
    EXPECT_FALSE(machine.NamedObjectExists(L"event"));
    machine.RunFor(1'000);
    EXPECT_EQ(result, WAIT_TIMEOUT);
}

TEST(SimMutex, GoesToWaitingThreadsInOrder)
{
    CMachine machine;
    const WaitHandle mutex = CreateNamedMutex(L"mutex", TRUE, nullptr);
    std::vector<int> order;
    for (int i = 1; i <= 2; ++i) {
        StartBody([&, i] {
            WaitForOne(mutex, INFINITE, FALSE);
            order.push_back(i);
            ReleaseOwnedMutex(mutex);
        });
    }
    machine.RunUntilIdle();
    EXPECT_TRUE(order.empty());
    ReleaseOwnedMutex(mutex);
    EXPECT_EQ(WaitForOne(mutex, INFINITE, FALSE), WAIT_OBJECT_0);
    EXPECT_THAT(order, ElementsAre(1, 2));
}

TEST(SimMutex, WaitingThreadGetsTheAbandonedMutexEvenWithoutHandle)
{
    CMachine machine;
    WaitHandle mutex = CreateNamedMutex(L"mutex", FALSE, nullptr);
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    DWORD result = WAIT_FAILED;
    StartBody([&] {
        WaitForOne(mutex, INFINITE, FALSE);
        WaitForOne(event, INFINITE, FALSE);
    });
    StartBody([&] { result = WaitForOne(mutex, INFINITE, FALSE); });
    machine.RunUntilIdle();
    mutex.reset();
    SetNamedEvent(event);
    machine.RunUntilIdle();
    EXPECT_EQ(result, WAIT_ABANDONED_0);
}

TEST(SimMutex, OtherProcessMakesTheMutexAndLetsItGo)
{
    CMachine machine;
    machine.OtherProcessAcquiresMutex(L"mutex");
    EXPECT_TRUE(machine.NamedObjectExists(L"mutex"));
    machine.OtherProcessReleasesMutex(L"mutex");
    EXPECT_FALSE(machine.NamedObjectExists(L"mutex"));
}

TEST(SimMutex, OtherProcessWaitsUntilTheMutexIsFree)
{
    CMachine machine;
    const WaitHandle mutex = CreateNamedMutex(L"mutex", FALSE, nullptr);
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    StartBody([&] {
        WaitForOne(mutex, INFINITE, FALSE);
        WaitForOne(event, 700, FALSE);
        ReleaseOwnedMutex(mutex);
    });
    machine.RunUntilIdle();
    machine.OtherProcessAcquiresMutex(L"mutex");
    EXPECT_EQ(machine.ElapsedMs(), 700);
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_TIMEOUT);
    machine.OtherProcessReleasesMutex(L"mutex");
}

TEST(SimWait, RefusesNoObjectsAndTooMany)
{
    CMachine machine;
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    EXPECT_EQ(WaitForAny({}, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastErrorCode(), ERROR_INVALID_PARAMETER);
    SetLastErrorCode(0);
    EXPECT_EQ(WaitForAny(std::vector<WaitHandle>(65, event), 0), WAIT_FAILED);
    EXPECT_EQ(GetLastErrorCode(), ERROR_INVALID_PARAMETER);
}

} // namespace
} // namespace platform::sim
