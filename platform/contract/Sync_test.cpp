#include "platform/Sync.h"

#include "platform/contract/ContractTest.h"
#include "platform/LastError.h"

#include <array>
#include <atomic>
#include <memory>
#include <vector>

using namespace platform;

namespace contract {
namespace {

class MutexContract : public ContractTest {};
class EventContract : public ContractTest {};
class WaitContract : public ContractTest {};

WaitHandle MakeMutex(const CString& name, BOOL initialOwner = FALSE)
{
    return CreateNamedMutex(name.c_str(), initialOwner, nullptr);
}

WaitHandle MakeEvent(const CString& name) { return CreateNamedEvent(name.c_str(), nullptr); }

SecurityDescriptorPtr OpenToAll()
{
    const SecurityDescriptorPtr descriptor = InitializeDescriptor();
    EXPECT_NE(descriptor, nullptr);
    EXPECT_TRUE(SetNullDacl(descriptor));
    return descriptor;
}

// Acquires the mutex on another thread, which then ends without releasing it.
void AbandonInOtherThread(const WaitHandle& mutex) { ASSERT_EQ(WaitInOtherThread(mutex, 0), WAIT_OBJECT_0); }

TEST_F(MutexContract, ANewMutexIsFreeAndTheLastErrorZero)
{
    SetLastErrorCode(ERROR_NOT_SUPPORTED);
    const WaitHandle mutex = MakeMutex(ObjectName(L"Mutex"));
    ASSERT_NE(mutex, nullptr);
    EXPECT_TRUE(LastErrorIs(ERROR_SUCCESS));
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
}

TEST_F(MutexContract, AnExistingMutexIsOpenedWithLastError183)
{
    const WaitHandle first = MakeMutex(ObjectName(L"Mutex"));
    SetLastErrorCode(0);
    const WaitHandle second = MakeMutex(ObjectName(L"Mutex"));
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(LastErrorIs(ERROR_ALREADY_EXISTS));
}

TEST_F(MutexContract, AMutexOfAnotherProcessIsOpenedWithLastError183)
{
    const CString name = ObjectName(L"Mutex");
    OtherProcessAcquiresMutex(name);
    const WaitHandle mutex = MakeMutex(name);
    ASSERT_NE(mutex, nullptr);
    EXPECT_TRUE(LastErrorIs(ERROR_ALREADY_EXISTS));
    OtherProcessReleasesMutex(name);
}

TEST_F(MutexContract, InitialOwnerOwnsTheMutexThatItCreates)
{
    const WaitHandle mutex = MakeMutex(ObjectName(L"Mutex"), TRUE);
    EXPECT_TRUE(LastErrorIs(ERROR_SUCCESS));
    EXPECT_EQ(WaitInOtherThread(mutex, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    EXPECT_FALSE(ReleaseOwnedMutex(mutex));
}

TEST_F(MutexContract, InitialOwnerDoesNotOwnAnExistingMutex)
{
    const CString name = ObjectName(L"Mutex");
    OtherProcessAcquiresMutex(name);
    const WaitHandle mutex = MakeMutex(name, TRUE);
    EXPECT_TRUE(LastErrorIs(ERROR_ALREADY_EXISTS));
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_TIMEOUT);
    EXPECT_FALSE(ReleaseOwnedMutex(mutex));
    OtherProcessReleasesMutex(name);
}

TEST_F(MutexContract, TheSameNameWithGlobalPrefixIsAnotherObject)
{
    const CString name = ObjectName(L"Mutex");
    const WaitHandle session = MakeMutex(name, TRUE);
    const WaitHandle global = MakeMutex(L"Global\\" + name);
    EXPECT_TRUE(LastErrorIs(ERROR_SUCCESS));
    EXPECT_EQ(WaitInOtherThread(session, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForOne(global, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseOwnedMutex(global));
    EXPECT_TRUE(ReleaseOwnedMutex(session));
}

TEST_F(MutexContract, AMutexIsGoneWithItsLastHandle)
{
    const CString name = ObjectName(L"Mutex");
    WaitHandle first = MakeMutex(name);
    WaitHandle copy = first;
    first.reset();
    WaitHandle second = MakeMutex(name);
    EXPECT_TRUE(LastErrorIs(ERROR_ALREADY_EXISTS)) << "a copy holds it";
    second.reset();
    copy.reset();
    const WaitHandle third = MakeMutex(name);
    EXPECT_TRUE(LastErrorIs(ERROR_SUCCESS));
}

TEST_F(MutexContract, EveryHandleReachesTheSameMutex)
{
    const CString name = ObjectName(L"Mutex");
    const WaitHandle first = MakeMutex(name, TRUE);
    const WaitHandle second = MakeMutex(name);
    EXPECT_EQ(WaitInOtherThread(second, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(ReleaseOwnedMutex(first));
    EXPECT_EQ(WaitForOne(second, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseOwnedMutex(second));
}

TEST_F(MutexContract, TheOwnerMayAcquireItAgain)
{
    const WaitHandle mutex = MakeMutex(ObjectName(L"Mutex"));
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForOne(mutex, INFINITE, TRUE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForAny({&mutex, 1}, 0), WAIT_OBJECT_0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(WaitInOtherThread(mutex, 0), WAIT_TIMEOUT);
        EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    }
    CRunningThread([&] {
        EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0);
        EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    }).Join();
}

TEST_F(MutexContract, WhoIsNotTheOwnerCannotRelease)
{
    const WaitHandle mutex = MakeMutex(ObjectName(L"Mutex"));
    SetLastErrorCode(0);
    EXPECT_FALSE(ReleaseOwnedMutex(mutex)) << "nobody owns it";
    EXPECT_TRUE(LastErrorIs(ERROR_NOT_OWNER));
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0);
    CRunningThread([&] {
        EXPECT_FALSE(ReleaseOwnedMutex(mutex));
        EXPECT_TRUE(LastErrorIs(ERROR_NOT_OWNER));
    }).Join();
    EXPECT_TRUE(ReleaseOwnedMutex(mutex)) << "the owner still owns it";
    SetLastErrorCode(0);
    EXPECT_FALSE(ReleaseOwnedMutex(mutex)) << "once too often";
    EXPECT_TRUE(LastErrorIs(ERROR_NOT_OWNER));
}

TEST_F(MutexContract, AWaitGoesOnWhenTheOwnerReleases)
{
    const WaitHandle mutex = MakeMutex(ObjectName(L"Mutex"), TRUE);
    std::atomic<DWORD> result = WAIT_FAILED;
    CRunningThread waiter([&] {
        result = WaitForOne(mutex, INFINITE, FALSE);
        EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    });
    LetPass(10);
    EXPECT_FALSE(waiter.HasEnded());
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    waiter.Join();
    EXPECT_EQ(result, WAIT_OBJECT_0);
}

TEST_F(MutexContract, AnotherProcessKeepsItAway)
{
    for (const CString& name : {ObjectName(L"Mutex"), L"Global\\" + ObjectName(L"Mutex")}) {
        const WaitHandle mutex = MakeMutex(name);
        OtherProcessAcquiresMutex(name);
        EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_TIMEOUT);
        EXPECT_EQ(WaitForAny({&mutex, 1}, 5), WAIT_TIMEOUT);
        EXPECT_FALSE(ReleaseOwnedMutex(mutex));
        OtherProcessReleasesMutex(name);
        EXPECT_EQ(WaitForOne(mutex, kLongMs, FALSE), WAIT_OBJECT_0);
        EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    }
}

TEST_F(MutexContract, AWaitGoesOnWhenAnotherProcessReleases)
{
    const CString name = ObjectName(L"Mutex");
    const WaitHandle mutex = MakeMutex(name);
    OtherProcessAcquiresMutex(name);
    std::atomic<DWORD> result = WAIT_FAILED;
    CRunningThread waiter([&] {
        result = WaitForOne(mutex, INFINITE, FALSE);
        EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    });
    LetPass(10);
    EXPECT_FALSE(waiter.HasEnded());
    OtherProcessReleasesMutex(name);
    waiter.Join();
    EXPECT_EQ(result, WAIT_OBJECT_0);
}

TEST_F(MutexContract, AThreadThatEndsAsOwnerAbandonsIt)
{
    const WaitHandle mutex = MakeMutex(ObjectName(L"Mutex"));
    AbandonInOtherThread(mutex);
    EXPECT_EQ(WaitForOne(mutex, kLongMs, FALSE), WAIT_ABANDONED_0);
    EXPECT_EQ(WaitInOtherThread(mutex, 0), WAIT_TIMEOUT) << "the wait has acquired it";
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0) << "it is told once";
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
}

TEST_F(MutexContract, AThreadThatEndsAsOwnerSeveralTimesOverAbandonsItWhole)
{
    const WaitHandle mutex = MakeMutex(ObjectName(L"Mutex"));
    CRunningThread([&] {
        EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0);
        EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0);
    }).Join();
    EXPECT_EQ(WaitForOne(mutex, kLongMs, FALSE), WAIT_ABANDONED_0);
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    EXPECT_FALSE(ReleaseOwnedMutex(mutex));
}

TEST_F(MutexContract, AProcessThatEndsAsOwnerAbandonsIt)
{
    for (const CString& name : {ObjectName(L"Mutex"), L"Global\\" + ObjectName(L"Mutex")}) {
        const WaitHandle mutex = MakeMutex(name);
        OtherProcessAcquiresMutex(name);
        EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_TIMEOUT);
        OtherProcessAbandonsMutex(name);
        EXPECT_EQ(WaitForOne(mutex, kLongMs, FALSE), WAIT_ABANDONED_0);
        EXPECT_TRUE(ReleaseOwnedMutex(mutex));
        EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0);
        EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    }
}

TEST_F(MutexContract, ANullDaclOpensItToAll)
{
    for (const CString& name : {ObjectName(L"Mutex"), L"Global\\" + ObjectName(L"Mutex")}) {
        const WaitHandle mutex = CreateNamedMutex(name.c_str(), FALSE, OpenToAll().get());
        ASSERT_NE(mutex, nullptr);
        EXPECT_TRUE(IsNamedObjectOpenToAll(name));
    }
}

TEST_F(MutexContract, ANullHandleFails)
{
    SetLastErrorCode(0);
    EXPECT_FALSE(ReleaseOwnedMutex(nullptr));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
}

TEST_F(EventContract, ANewEventIsNotSignalledAndTheLastErrorZero)
{
    SetLastErrorCode(ERROR_NOT_SUPPORTED);
    const WaitHandle event = MakeEvent(ObjectName(L"Event"));
    ASSERT_NE(event, nullptr);
    EXPECT_TRUE(LastErrorIs(ERROR_SUCCESS));
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(EventContract, AnExistingEventIsOpenedAsItIsWithLastError183)
{
    const WaitHandle first = MakeEvent(ObjectName(L"Event"));
    EXPECT_TRUE(SetNamedEvent(first));
    SetLastErrorCode(0);
    const WaitHandle second = MakeEvent(ObjectName(L"Event"));
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(LastErrorIs(ERROR_ALREADY_EXISTS));
    EXPECT_EQ(WaitForOne(second, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForOne(first, 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(EventContract, AnEventIsGoneWithItsLastHandle)
{
    const CString name = ObjectName(L"Event");
    WaitHandle first = MakeEvent(name);
    EXPECT_TRUE(SetNamedEvent(first));
    first.reset();
    const WaitHandle second = MakeEvent(name);
    EXPECT_TRUE(LastErrorIs(ERROR_SUCCESS));
    EXPECT_EQ(WaitForOne(second, 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(EventContract, SettingLetsOneWaitPass)
{
    const WaitHandle event = MakeEvent(ObjectName(L"Event"));
    EXPECT_TRUE(SetNamedEvent(event));
    EXPECT_EQ(WaitForOne(event, INFINITE, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(EventContract, SettingTwiceIsSettingOnce)
{
    const WaitHandle event = MakeEvent(ObjectName(L"Event"));
    EXPECT_TRUE(SetNamedEvent(event));
    EXPECT_TRUE(SetNamedEvent(event));
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(EventContract, SettingLetsAWaitingThreadGoOn)
{
    const WaitHandle event = MakeEvent(ObjectName(L"Event"));
    std::atomic<DWORD> result = WAIT_FAILED;
    CRunningThread waiter([&] { result = WaitForOne(event, INFINITE, FALSE); });
    LetPass(10);
    EXPECT_FALSE(waiter.HasEnded());
    EXPECT_TRUE(SetNamedEvent(event));
    waiter.Join();
    EXPECT_EQ(result, WAIT_OBJECT_0);
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(EventContract, SettingLetsOneOfTwoWaitingThreadsGoOn)
{
    const WaitHandle event = MakeEvent(ObjectName(L"Event"));
    std::atomic<int> passed = 0;
    const auto wait = [&] {
        EXPECT_EQ(WaitForOne(event, INFINITE, FALSE), WAIT_OBJECT_0);
        ++passed;
    };
    CRunningThread first(wait);
    CRunningThread second(wait);
    LetPass(10);
    EXPECT_EQ(passed, 0);
    EXPECT_TRUE(SetNamedEvent(event));
    for (DWORD passedMs = 0; passed == 0 && passedMs < kLongMs; ++passedMs) {
        LetPass(1);
    }
    LetPass(10);
    EXPECT_EQ(passed, 1);
    EXPECT_TRUE(SetNamedEvent(event));
    first.Join();
    second.Join();
    EXPECT_EQ(passed, 2);
}

TEST_F(EventContract, AnotherProcessMaySetIt)
{
    const CString name = ObjectName(L"Event");
    const WaitHandle event = MakeEvent(name);
    EXPECT_TRUE(OtherProcessSetsEvent(name));
    EXPECT_EQ(WaitForOne(event, kLongMs, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(EventContract, AnotherProcessLetsAWaitingThreadGoOn)
{
    const CString name = ObjectName(L"Event");
    const WaitHandle event = MakeEvent(name);
    std::atomic<DWORD> result = WAIT_FAILED;
    CRunningThread waiter([&] { result = WaitForOne(event, INFINITE, TRUE); });
    LetPass(10);
    EXPECT_FALSE(waiter.HasEnded());
    EXPECT_TRUE(OtherProcessSetsEvent(name));
    waiter.Join();
    EXPECT_EQ(result, WAIT_OBJECT_0);
}

TEST_F(EventContract, AnotherProcessCannotSetWhatNobodyHas)
{
    EXPECT_FALSE(OtherProcessSetsEvent(ObjectName(L"Event")));
    MakeEvent(ObjectName(L"Event")).reset();
    EXPECT_FALSE(OtherProcessSetsEvent(ObjectName(L"Event")));
}

TEST_F(EventContract, APulseWithNobodyWaitingIsLost)
{
    const WaitHandle event = MakeEvent(ObjectName(L"Event"));
    EXPECT_TRUE(PulseNamedEvent(event));
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(EventContract, APulseLeavesASetEventNotSignalled)
{
    const WaitHandle event = MakeEvent(ObjectName(L"Event"));
    EXPECT_TRUE(SetNamedEvent(event));
    EXPECT_TRUE(PulseNamedEvent(event));
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
}

// Pulses again and again, since a pulse may come before the thread waits.
TEST_F(EventContract, APulseLetsAWaitingThreadGoOn)
{
    for (const BOOL alertable : {FALSE, TRUE}) {
        const WaitHandle event = MakeEvent(ObjectName(L"Event"));
        std::atomic<DWORD> result = WAIT_FAILED;
        CRunningThread waiter([&] { result = WaitForOne(event, INFINITE, alertable); });
        for (DWORD passedMs = 0; !waiter.HasEnded() && passedMs < kLongMs; ++passedMs) {
            LetPass(1);
            EXPECT_TRUE(PulseNamedEvent(event));
        }
        waiter.Join();
        EXPECT_EQ(result, WAIT_OBJECT_0);
        EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
    }
}

TEST_F(EventContract, APulseLetsOneOfTwoWaitingThreadsGoOn)
{
    const WaitHandle event = MakeEvent(ObjectName(L"Event"));
    std::atomic<int> passed = 0;
    const auto wait = [&] {
        EXPECT_EQ(WaitForOne(event, INFINITE, FALSE), WAIT_OBJECT_0);
        ++passed;
    };
    CRunningThread first(wait);
    CRunningThread second(wait);
    int before = 0;
    for (DWORD passedMs = 0; passed < 2 && passedMs < kLongMs; ++passedMs) {
        EXPECT_TRUE(PulseNamedEvent(event));
        LetPass(5);
        EXPECT_LE(passed - before, 1);
        before = passed;
    }
    first.Join();
    second.Join();
    EXPECT_EQ(passed, 2);
}

TEST_F(EventContract, ANullDaclOpensItToAll)
{
    const CString name = ObjectName(L"Event");
    const WaitHandle event = CreateNamedEvent(name.c_str(), OpenToAll().get());
    ASSERT_NE(event, nullptr);
    EXPECT_TRUE(IsNamedObjectOpenToAll(name));
}

TEST_F(EventContract, ANullHandleFails)
{
    SetLastErrorCode(0);
    EXPECT_FALSE(SetNamedEvent(nullptr));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
    SetLastErrorCode(0);
    EXPECT_FALSE(PulseNamedEvent(nullptr));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
}

TEST_F(WaitContract, AWaitForOneTakesItsTime)
{
    const WaitHandle event = MakeEvent(ObjectName(L"Event"));
    for (const BOOL alertable : {FALSE, TRUE}) {
        const std::int64_t startMs = ClockMs();
        EXPECT_EQ(WaitForOne(event, 60, alertable), WAIT_TIMEOUT);
        EXPECT_GE(ClockMs() - startMs, 60 - kEarlyMs);
    }
}

TEST_F(WaitContract, AWaitForAnyTakesItsTime)
{
    const std::array<WaitHandle, 2> events = {MakeEvent(ObjectName(L"First")), MakeEvent(ObjectName(L"Second"))};
    const std::int64_t startMs = ClockMs();
    EXPECT_EQ(WaitForAny(events, 60), WAIT_TIMEOUT);
    EXPECT_GE(ClockMs() - startMs, 60 - kEarlyMs);
    EXPECT_EQ(WaitForAny(events, 0), WAIT_TIMEOUT);
}

TEST_F(WaitContract, ANullHandleFails)
{
    SetLastErrorCode(0);
    EXPECT_EQ(WaitForOne(nullptr, 0, FALSE), WAIT_FAILED);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
    SetLastErrorCode(0);
    EXPECT_EQ(WaitForOne(nullptr, INFINITE, TRUE), WAIT_FAILED);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
    const std::array<WaitHandle, 2> withNull = {MakeEvent(ObjectName(L"Event")), nullptr};
    SetLastErrorCode(0);
    EXPECT_EQ(WaitForAny(withNull, INFINITE), WAIT_FAILED);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
}

TEST_F(WaitContract, AWaitForAnyTellsThePosition)
{
    const std::array<WaitHandle, 3> events = {MakeEvent(ObjectName(L"First")), MakeEvent(ObjectName(L"Second")),
                                              MakeEvent(ObjectName(L"Third"))};
    for (DWORD i = 0; i < events.size(); ++i) {
        EXPECT_TRUE(SetNamedEvent(events[i]));
        EXPECT_EQ(WaitForAny(events, INFINITE), WAIT_OBJECT_0 + i);
        EXPECT_EQ(WaitForAny(events, 0), WAIT_TIMEOUT);
    }
}

TEST_F(WaitContract, AWaitForAnyTakesOnlyTheFirstThatIsSignalled)
{
    const WaitHandle mutex = MakeMutex(ObjectName(L"Mutex"));
    const WaitHandle event = MakeEvent(ObjectName(L"Event"));
    const std::array<WaitHandle, 2> objects = {mutex, event};
    EXPECT_TRUE(SetNamedEvent(event));
    EXPECT_EQ(WaitForAny(objects, INFINITE), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_OBJECT_0) << "the event is still set";

    const std::array<WaitHandle, 2> reversed = {event, mutex};
    EXPECT_TRUE(SetNamedEvent(event));
    EXPECT_EQ(WaitForAny(reversed, INFINITE), WAIT_OBJECT_0);
    EXPECT_FALSE(ReleaseOwnedMutex(mutex)) << "the mutex was not taken";
}

TEST_F(WaitContract, AWaitForAnyPassesOverAMutexThatIsTaken)
{
    const CString name = L"Global\\" + ObjectName(L"Mutex");
    const WaitHandle mutex = MakeMutex(name);
    const WaitHandle event = MakeEvent(ObjectName(L"Event"));
    const std::array<WaitHandle, 2> objects = {mutex, event};
    OtherProcessAcquiresMutex(name);
    EXPECT_EQ(WaitForAny(objects, 5), WAIT_TIMEOUT);
    EXPECT_TRUE(SetNamedEvent(event));
    EXPECT_EQ(WaitForAny(objects, INFINITE), WAIT_OBJECT_0 + 1);
    OtherProcessReleasesMutex(name);
    EXPECT_EQ(WaitForAny(objects, kLongMs), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
}

TEST_F(WaitContract, AWaitForAnyGoesOnWhenOneBecomesSignalled)
{
    const CString name = L"Global\\" + ObjectName(L"Mutex");
    const WaitHandle mutex = MakeMutex(name);
    const WaitHandle event = MakeEvent(ObjectName(L"Event"));
    const std::array<WaitHandle, 2> objects = {mutex, event};
    OtherProcessAcquiresMutex(name);
    std::vector<DWORD> results;
    CRunningThread waiter([&] {
        results.push_back(WaitForAny(objects, INFINITE));
        results.push_back(WaitForAny(objects, INFINITE));
        EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    });
    LetPass(10);
    EXPECT_TRUE(SetNamedEvent(event));
    LetPass(10);
    EXPECT_FALSE(waiter.HasEnded());
    OtherProcessReleasesMutex(name);
    waiter.Join();
    EXPECT_EQ(results, (std::vector<DWORD>{WAIT_OBJECT_0 + 1, WAIT_OBJECT_0}));
}

// Pulses again and again, since a pulse may come before the thread waits.
TEST_F(WaitContract, APulseEndsAWaitForAny)
{
    const CString name = ObjectName(L"Mutex");
    const std::array<WaitHandle, 2> objects = {MakeMutex(name), MakeEvent(ObjectName(L"Event"))};
    OtherProcessAcquiresMutex(name);
    std::atomic<DWORD> result = WAIT_FAILED;
    CRunningThread waiter([&] { result = WaitForAny(objects, INFINITE); });
    for (DWORD passedMs = 0; !waiter.HasEnded() && passedMs < kLongMs; ++passedMs) {
        LetPass(1);
        EXPECT_TRUE(PulseNamedEvent(objects[1]));
    }
    waiter.Join();
    EXPECT_EQ(result, WAIT_OBJECT_0 + 1);
    OtherProcessReleasesMutex(name);
}

TEST_F(WaitContract, AWaitForAnyTellsAnAbandonedMutexByPosition)
{
    const WaitHandle mutex = MakeMutex(ObjectName(L"Mutex"));
    const WaitHandle event = MakeEvent(ObjectName(L"Event"));
    AbandonInOtherThread(mutex);
    EXPECT_EQ(WaitForAny(std::array<WaitHandle, 2>{mutex, event}, kLongMs), WAIT_ABANDONED_0);
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    AbandonInOtherThread(mutex);
    EXPECT_EQ(WaitForAny(std::array<WaitHandle, 2>{event, mutex}, kLongMs), WAIT_ABANDONED_0 + 1);
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
}

} // namespace
} // namespace contract
