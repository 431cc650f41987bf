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

class SimKernelObjects : public testing::Test {
protected:
    CMachine m_machine;
    const WaitHandle m_event = CreateNamedEvent(L"event", nullptr);
};

using SimEvent = SimKernelObjects;
using SimNamedObject = SimKernelObjects;
using SimMutex = SimKernelObjects;

TEST_F(SimEvent, PulseAndSetLetTheThreadGoOnThatHasWaitedLongest)
{
    std::vector<int> woken;
    for (int i = 1; i <= 3; ++i) {
        StartBody([&, i] {
            WaitForOne(m_event, INFINITE, FALSE);
            woken.push_back(i);
        });
    }
    m_machine.RunUntilIdle();
    PulseNamedEvent(m_event);
    m_machine.RunUntilIdle();
    EXPECT_THAT(woken, ElementsAre(1));
    SetNamedEvent(m_event);
    SetNamedEvent(m_event);
    m_machine.RunUntilIdle();
    EXPECT_THAT(woken, ElementsAre(1, 2, 3));
    EXPECT_EQ(WaitForOne(m_event, 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(SimNamedObject, RemembersTheNullDaclOfItsMaking)
{
    const SecurityDescriptorPtr descriptor = InitializeDescriptor();
    const WaitHandle closed = CreateNamedMutex(L"closed", FALSE, descriptor.get());
    SetNullDacl(descriptor);
    const WaitHandle open = CreateNamedMutex(L"open", FALSE, descriptor.get());
    EXPECT_FALSE(m_machine.NamedObjectHasNullDacl(L"closed"));
    EXPECT_TRUE(m_machine.NamedObjectHasNullDacl(L"open"));
    EXPECT_FALSE(m_machine.NamedObjectHasNullDacl(L"missing"));
}

TEST_F(SimNamedObject, WaitGoesOnWhenTheLastHandleIsClosed)
{
    WaitHandle event = CreateNamedEvent(L"other", nullptr);
    DWORD result = WAIT_FAILED;
    StartBody([&] { result = WaitForOne(event, 1'000, FALSE); });
    m_machine.RunUntilIdle();
    event.reset();
    EXPECT_FALSE(m_machine.NamedObjectExists(L"other"));
    m_machine.RunFor(1'000);
    EXPECT_EQ(result, WAIT_TIMEOUT);
}

TEST_F(SimMutex, GoesToWaitingThreadsInOrder)
{
    const WaitHandle mutex = CreateNamedMutex(L"mutex", TRUE, nullptr);
    std::vector<int> order;
    for (int i = 1; i <= 2; ++i) {
        StartBody([&, i] {
            WaitForOne(mutex, INFINITE, FALSE);
            order.push_back(i);
            ReleaseOwnedMutex(mutex);
        });
    }
    m_machine.RunUntilIdle();
    EXPECT_TRUE(order.empty());
    ReleaseOwnedMutex(mutex);
    EXPECT_EQ(WaitForOne(mutex, INFINITE, FALSE), WAIT_OBJECT_0);
    EXPECT_THAT(order, ElementsAre(1, 2));
}

TEST_F(SimMutex, WaitingThreadGetsTheAbandonedMutexEvenWithoutHandle)
{
    WaitHandle mutex = CreateNamedMutex(L"mutex", FALSE, nullptr);
    DWORD result = WAIT_FAILED;
    StartBody([&] {
        WaitForOne(mutex, INFINITE, FALSE);
        WaitForOne(m_event, INFINITE, FALSE);
    });
    StartBody([&] { result = WaitForOne(mutex, INFINITE, FALSE); });
    m_machine.RunUntilIdle();
    mutex.reset();
    SetNamedEvent(m_event);
    m_machine.RunUntilIdle();
    EXPECT_EQ(result, WAIT_ABANDONED_0);
}

TEST_F(SimMutex, OtherProcessMakesTheMutexAndLetsItGo)
{
    m_machine.OtherProcessAcquiresMutex(L"mutex");
    EXPECT_TRUE(m_machine.NamedObjectExists(L"mutex"));
    m_machine.OtherProcessReleasesMutex(L"mutex");
    EXPECT_FALSE(m_machine.NamedObjectExists(L"mutex"));
}

TEST_F(SimMutex, OtherProcessWaitsUntilTheMutexIsFree)
{
    const WaitHandle mutex = CreateNamedMutex(L"mutex", FALSE, nullptr);
    StartBody([&] {
        WaitForOne(mutex, INFINITE, FALSE);
        WaitForOne(m_event, 700, FALSE);
        ReleaseOwnedMutex(mutex);
    });
    m_machine.RunUntilIdle();
    m_machine.OtherProcessAcquiresMutex(L"mutex");
    EXPECT_EQ(m_machine.ElapsedMs(), 700);
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_TIMEOUT);
    m_machine.OtherProcessReleasesMutex(L"mutex");
}

} // namespace
} // namespace platform::sim
