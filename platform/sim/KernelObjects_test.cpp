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

TEST(SimEvent, PulseWithNobodyWaitingIsLost)
{
    CMachine machine;
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    PulseNamedEvent(event);
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
}

TEST(SimEvent, PulseTakesBackAnEarlierSet)
{
    CMachine machine;
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    SetNamedEvent(event);
    PulseNamedEvent(event);
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
}

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

TEST(SimEvent, SetCountsOnceHoweverOften)
{
    CMachine machine;
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    SetNamedEvent(event);
    SetNamedEvent(event);
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
}

TEST(SimNamedObject, HandlesOfOneNameReachOneObjectUntilTheLastIsClosed)
{
    CMachine machine;
    WaitHandle first = CreateNamedEvent(L"event", nullptr);
    EXPECT_EQ(GetLastErrorCode(), ERROR_SUCCESS);
    WaitHandle second = CreateNamedEvent(L"event", nullptr);
    EXPECT_EQ(GetLastErrorCode(), ERROR_ALREADY_EXISTS);
    SetNamedEvent(first);
    EXPECT_EQ(WaitForOne(second, 0, FALSE), WAIT_OBJECT_0);
    SetNamedEvent(first);
    first.reset();
    EXPECT_TRUE(machine.NamedObjectExists(L"event"));
    second.reset();
    EXPECT_FALSE(machine.NamedObjectExists(L"event"));
    first = CreateNamedEvent(L"event", nullptr);
    EXPECT_EQ(GetLastErrorCode(), ERROR_SUCCESS);
    EXPECT_EQ(WaitForOne(first, 0, FALSE), WAIT_TIMEOUT);
}

TEST(SimNamedObject, GlobalAndSessionNamesAreDifferentObjects)
{
    CMachine machine;
    const WaitHandle session = CreateNamedMutex(L"name", FALSE, nullptr);
    const WaitHandle global = CreateNamedMutex(L"Global\\name", FALSE, nullptr);
    EXPECT_EQ(GetLastErrorCode(), ERROR_SUCCESS);
    EXPECT_NE(session, global);
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

TEST(SimMutex, OwnerAcquiresAgainAndReleasesAsOften)
{
    CMachine machine;
    const WaitHandle mutex = CreateNamedMutex(L"mutex", TRUE, nullptr);
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    EXPECT_TRUE(machine.IsMutexOwned(L"mutex"));
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    EXPECT_FALSE(machine.IsMutexOwned(L"mutex"));
    EXPECT_FALSE(ReleaseOwnedMutex(mutex));
    EXPECT_EQ(GetLastErrorCode(), ERROR_NOT_OWNER);
}

TEST(SimMutex, InitialOwnerCountsOnlyForTheMaker)
{
    CMachine machine;
    const WaitHandle mutex = CreateNamedMutex(L"mutex", TRUE, nullptr);
    DWORD second = 0;
    WaitForThread(StartBody([&] {
                      const WaitHandle handle = CreateNamedMutex(L"mutex", TRUE, nullptr);
                      second = WaitForOne(handle, 0, FALSE);
                  }),
                  INFINITE);
    EXPECT_EQ(second, WAIT_TIMEOUT);
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

TEST(SimMutex, IsAbandonedWhenItsOwnerEnds)
{
    CMachine machine;
    const WaitHandle mutex = CreateNamedMutex(L"mutex", FALSE, nullptr);
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    WaitForThread(StartBody([&] {
                      WaitForOne(mutex, INFINITE, FALSE);
                      WaitForOne(mutex, INFINITE, FALSE);
                  }),
                  INFINITE);
    EXPECT_FALSE(machine.IsMutexOwned(L"mutex"));
    EXPECT_EQ(WaitForAny(std::array{event, mutex}, 0), WAIT_ABANDONED_0 + 1);
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    EXPECT_FALSE(ReleaseOwnedMutex(mutex));
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

TEST(SimMutex, OtherProcessTakesReleasesAndAbandons)
{
    CMachine machine;
    const WaitHandle mutex = CreateNamedMutex(L"mutex", FALSE, nullptr);
    machine.OtherProcessAcquiresMutex(L"mutex");
    EXPECT_TRUE(machine.IsMutexOwned(L"mutex"));
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_TIMEOUT);
    machine.OtherProcessReleasesMutex(L"mutex");
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0);
    ReleaseOwnedMutex(mutex);
    machine.OtherProcessAcquiresMutex(L"mutex");
    machine.OtherProcessAbandonsMutex(L"mutex");
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_ABANDONED_0);
}

TEST(SimMutex, OtherProcessMakesTheMutexAndLetsItGo)
{
    CMachine machine;
    machine.OtherProcessAcquiresMutex(L"mutex");
    const WaitHandle mutex = CreateNamedMutex(L"mutex", TRUE, nullptr);
    EXPECT_EQ(GetLastErrorCode(), ERROR_ALREADY_EXISTS);
    EXPECT_FALSE(ReleaseOwnedMutex(mutex));
    machine.OtherProcessReleasesMutex(L"mutex");
    machine.OtherProcessAcquiresMutex(L"other");
    machine.OtherProcessReleasesMutex(L"other");
    EXPECT_FALSE(machine.NamedObjectExists(L"other"));
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

TEST(SimEvent, OtherProcessSetsAnEventThatSomebodyHas)
{
    CMachine machine;
    EXPECT_FALSE(machine.OtherProcessSetsEvent(L"event"));
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    EXPECT_TRUE(machine.OtherProcessSetsEvent(L"event"));
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_OBJECT_0);
}

TEST(SimWait, TakesTheFirstSignalledByPosition)
{
    CMachine machine;
    const WaitHandle mutex = CreateNamedMutex(L"mutex", FALSE, nullptr);
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    SetNamedEvent(event);
    EXPECT_EQ(WaitForAny(std::array{mutex, event}, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_OBJECT_0) << "the object that was not taken stays signalled";
    SetNamedEvent(event);
    EXPECT_EQ(WaitForAny(std::array{event, mutex}, INFINITE), WAIT_OBJECT_0);
    machine.OtherProcessSetsEvent(L"event");
    ReleaseOwnedMutex(mutex);
    machine.OtherProcessAcquiresMutex(L"mutex");
    EXPECT_EQ(WaitForAny(std::array{mutex, event}, INFINITE), WAIT_OBJECT_0 + 1);
    machine.OtherProcessReleasesMutex(L"mutex");
}

TEST(SimWait, RefusesWhatItCannotWaitFor)
{
    CMachine machine;
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    SetLastErrorCode(0);
    EXPECT_EQ(WaitForOne(nullptr, 0, FALSE), WAIT_FAILED);
    EXPECT_EQ(GetLastErrorCode(), ERROR_INVALID_HANDLE);
    SetLastErrorCode(0);
    EXPECT_EQ(WaitForAny(std::array{event, WaitHandle()}, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastErrorCode(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(WaitForAny({}, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastErrorCode(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(WaitForAny(std::vector<WaitHandle>(65, event), 0), WAIT_FAILED);
    EXPECT_EQ(GetLastErrorCode(), ERROR_INVALID_PARAMETER);
}

} // namespace
} // namespace platform::sim
