#include "platform/Sync.h"

#include "platform/contract/ContractTest.h"
#include "platform/LastError.h"

#include <array>
#include <atomic>
#include <span>
#include <vector>

using namespace platform;

namespace contract {
namespace {

WaitHandle MakeMutex(const CString& name, BOOL initialOwner = FALSE)
{
    return CreateNamedMutex(name.c_str(), initialOwner, nullptr);
}

WaitHandle MakeEvent(const CString& name) { return CreateNamedEvent(name.c_str(), nullptr); }

class MutexContract : public ContractTest {
protected:
    void SetUp() override
    {
        ContractTest::SetUp();
        m_name = ObjectName(L"Mutex");
    }

    CString m_name;
};

class EventContract : public ContractTest {
protected:
    void SetUp() override
    {
        ContractTest::SetUp();
        m_name = ObjectName(L"Event");
        m_event = MakeEvent(m_name);
        ASSERT_NE(m_event, nullptr);
    }
    void TearDown() override
    {
        m_event.reset();
        ContractTest::TearDown();
    }

    CString m_name;
    WaitHandle m_event; // not signalled
};

class WaitContract : public EventContract {
protected:
    void SetUp() override
    {
        EventContract::SetUp();
        m_mutexName = L"Global\\" + ObjectName(L"Mutex");
        m_mutex = MakeMutex(m_mutexName);
    }
    void TearDown() override
    {
        m_mutex.reset();
        EventContract::TearDown();
    }

    CString m_mutexName;
    WaitHandle m_mutex; // free
};

// The calling thread gets the mutex within this time, and gives it back.
void ExpectFree(const WaitHandle& mutex, DWORD timeoutMs = 0)
{
    EXPECT_EQ(WaitForOne(mutex, timeoutMs, FALSE), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
}

// The event lets one wait pass, within this time, and not another one.
void ExpectSetOnce(const WaitHandle& event, DWORD timeoutMs = 0)
{
    EXPECT_EQ(WaitForOne(event, timeoutMs, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
}

// Another thread's wait goes on when this has been done, and not before.
void ExpectGoesOn(const std::function<void()>& wait, const std::function<void()>& signal)
{
    CRunningThread waiter(wait);
    LetPass(10);
    EXPECT_FALSE(waiter.HasEnded());
    signal();
    waiter.Join();
}

// Pulses again and again until the thread has gone on, since a pulse may come before it waits.
void PulseUntilEnd(CRunningThread& waiter, const WaitHandle& event)
{
    for (DWORD passedMs = 0; !waiter.HasEnded() && passedMs < kLongMs; ++passedMs) {
        LetPass(1);
        EXPECT_TRUE(PulseNamedEvent(event));
    }
    waiter.Join();
}

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
    const WaitHandle mutex = MakeMutex(m_name);
    ASSERT_NE(mutex, nullptr);
    EXPECT_TRUE(LastErrorIs(ERROR_SUCCESS));
    ExpectFree(mutex);
}

TEST_F(MutexContract, OpeningFindsTheMutexThatIsThereAndMakesNone)
{
    for (const CString& name : {m_name, L"Global\\" + m_name}) {
        WaitHandle mutex = MakeMutex(name);
        EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0);
        WaitHandle opened = OpenNamedMutex(name.c_str());
        ASSERT_NE(opened, nullptr);
        EXPECT_EQ(WaitInOtherThread(opened, 0), WAIT_TIMEOUT);
        EXPECT_TRUE(ReleaseOwnedMutex(mutex));
        ExpectFree(opened, kLongMs);
        opened.reset();
        mutex.reset();
        for (int i = 0; i < 2; ++i) {
            EXPECT_TRUE(FailsWith(ERROR_FILE_NOT_FOUND, [&] { return OpenNamedMutex(name.c_str()) != nullptr; }));
        }
    }
    const CString eventName = ObjectName(L"NoMutex");
    const WaitHandle event = MakeEvent(eventName);
    EXPECT_TRUE(FailsWith(ERROR_INVALID_HANDLE, [&] { return OpenNamedMutex(eventName.c_str()) != nullptr; }));
}

TEST_F(MutexContract, AnExistingMutexIsOpenedWithLastError183)
{
    const WaitHandle first = MakeMutex(m_name);
    SetLastErrorCode(0);
    const WaitHandle second = MakeMutex(m_name);
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(LastErrorIs(ERROR_ALREADY_EXISTS));
}

TEST_F(MutexContract, AMutexOfAnotherProcessIsOpenedWithLastError183)
{
    OtherProcessAcquiresMutex(m_name);
    const WaitHandle mutex = MakeMutex(m_name);
    ASSERT_NE(mutex, nullptr);
    EXPECT_TRUE(LastErrorIs(ERROR_ALREADY_EXISTS));
    OtherProcessReleasesMutex(m_name);
}

TEST_F(MutexContract, InitialOwnerOwnsTheMutexThatItCreates)
{
    const WaitHandle mutex = MakeMutex(m_name, TRUE);
    EXPECT_TRUE(LastErrorIs(ERROR_SUCCESS));
    EXPECT_EQ(WaitInOtherThread(mutex, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    EXPECT_FALSE(ReleaseOwnedMutex(mutex));
}

TEST_F(MutexContract, InitialOwnerDoesNotOwnAnExistingMutex)
{
    OtherProcessAcquiresMutex(m_name);
    const WaitHandle mutex = MakeMutex(m_name, TRUE);
    EXPECT_TRUE(LastErrorIs(ERROR_ALREADY_EXISTS));
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_TIMEOUT);
    EXPECT_FALSE(ReleaseOwnedMutex(mutex));
    OtherProcessReleasesMutex(m_name);
}

TEST_F(MutexContract, TheSameNameWithGlobalPrefixIsAnotherObject)
{
    const WaitHandle session = MakeMutex(m_name, TRUE);
    const WaitHandle global = MakeMutex(L"Global\\" + m_name);
    EXPECT_TRUE(LastErrorIs(ERROR_SUCCESS));
    EXPECT_EQ(WaitInOtherThread(session, 0), WAIT_TIMEOUT);
    ExpectFree(global);
    EXPECT_TRUE(ReleaseOwnedMutex(session));
}

TEST_F(MutexContract, AMutexIsGoneWithItsLastHandle)
{
    WaitHandle first = MakeMutex(m_name);
    WaitHandle copy = first;
    first.reset();
    WaitHandle second = MakeMutex(m_name);
    EXPECT_TRUE(LastErrorIs(ERROR_ALREADY_EXISTS)) << "a copy holds it";
    second.reset();
    copy.reset();
    const WaitHandle third = MakeMutex(m_name);
    EXPECT_TRUE(LastErrorIs(ERROR_SUCCESS));
}

TEST_F(MutexContract, EveryHandleReachesTheSameMutex)
{
    const WaitHandle first = MakeMutex(m_name, TRUE);
    const WaitHandle second = MakeMutex(m_name);
    EXPECT_EQ(WaitInOtherThread(second, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(ReleaseOwnedMutex(first));
    ExpectFree(second);
}

TEST_F(MutexContract, TheOwnerMayAcquireItAgain)
{
    const WaitHandle mutex = MakeMutex(m_name);
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForOne(mutex, INFINITE, TRUE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForAny({&mutex, 1}, 0, FALSE), WAIT_OBJECT_0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(WaitInOtherThread(mutex, 0), WAIT_TIMEOUT);
        EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    }
    CRunningThread([&] { ExpectFree(mutex); }).Join();
}

TEST_F(MutexContract, WhoIsNotTheOwnerCannotRelease)
{
    const WaitHandle mutex = MakeMutex(m_name);
    const auto isRefused = [&] { return FailsWith(ERROR_NOT_OWNER, [&] { return ReleaseOwnedMutex(mutex); }); };
    EXPECT_TRUE(isRefused()) << "nobody owns it";
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0);
    CRunningThread([&] { EXPECT_TRUE(isRefused()); }).Join();
    EXPECT_TRUE(ReleaseOwnedMutex(mutex)) << "the owner still owns it";
    EXPECT_TRUE(isRefused()) << "once too often";
}

TEST_F(MutexContract, AWaitGoesOnWhenTheOwnerReleases)
{
    const WaitHandle mutex = MakeMutex(m_name, TRUE);
    ExpectGoesOn([&] { ExpectFree(mutex, INFINITE); }, [&] { EXPECT_TRUE(ReleaseOwnedMutex(mutex)); });
}

TEST_F(MutexContract, AnotherProcessKeepsItAway)
{
    for (const CString& name : {m_name, L"Global\\" + m_name}) {
        const WaitHandle mutex = MakeMutex(name);
        OtherProcessAcquiresMutex(name);
        EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_TIMEOUT);
        EXPECT_EQ(WaitForAny({&mutex, 1}, 5, FALSE), WAIT_TIMEOUT);
        EXPECT_FALSE(ReleaseOwnedMutex(mutex));
        OtherProcessReleasesMutex(name);
        ExpectFree(mutex, kLongMs);
    }
}

TEST_F(MutexContract, AWaitGoesOnWhenAnotherProcessReleases)
{
    const WaitHandle mutex = MakeMutex(m_name);
    OtherProcessAcquiresMutex(m_name);
    ExpectGoesOn([&] { ExpectFree(mutex, INFINITE); }, [&] { OtherProcessReleasesMutex(m_name); });
}

TEST_F(MutexContract, AThreadThatEndsAsOwnerAbandonsIt)
{
    const WaitHandle mutex = MakeMutex(m_name);
    AbandonInOtherThread(mutex);
    EXPECT_EQ(WaitForOne(mutex, kLongMs, FALSE), WAIT_ABANDONED_0);
    EXPECT_EQ(WaitInOtherThread(mutex, 0), WAIT_TIMEOUT) << "the wait has acquired it";
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0) << "it is told once";
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
}

TEST_F(MutexContract, AThreadThatEndsAsOwnerSeveralTimesOverAbandonsItWhole)
{
    const WaitHandle mutex = MakeMutex(m_name);
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
    for (const CString& name : {m_name, L"Global\\" + m_name}) {
        const WaitHandle mutex = MakeMutex(name);
        OtherProcessAcquiresMutex(name);
        EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_TIMEOUT);
        OtherProcessAbandonsMutex(name);
        EXPECT_EQ(WaitForOne(mutex, kLongMs, FALSE), WAIT_ABANDONED_0);
        EXPECT_TRUE(ReleaseOwnedMutex(mutex));
        ExpectFree(mutex);
    }
}

TEST_F(MutexContract, ANullDaclOpensItToAll)
{
    for (const CString& name : {m_name, L"Global\\" + m_name}) {
        const WaitHandle mutex = CreateNamedMutex(name.c_str(), FALSE, OpenToAll().get());
        ASSERT_NE(mutex, nullptr);
        EXPECT_TRUE(IsNamedObjectOpenToAll(name));
    }
}

TEST_F(MutexContract, ANullHandleFails)
{
    EXPECT_TRUE(FailsWith(ERROR_INVALID_HANDLE, [] { return ReleaseOwnedMutex(nullptr); }));
}

TEST_F(EventContract, ANewEventIsNotSignalledAndTheLastErrorZero)
{
    m_event.reset();
    SetLastErrorCode(ERROR_NOT_SUPPORTED);
    m_event = MakeEvent(m_name);
    EXPECT_TRUE(LastErrorIs(ERROR_SUCCESS));
    EXPECT_EQ(WaitForOne(m_event, 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(EventContract, AnExistingEventIsOpenedAsItIsWithLastError183)
{
    EXPECT_TRUE(SetNamedEvent(m_event));
    SetLastErrorCode(0);
    const WaitHandle second = MakeEvent(m_name);
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(LastErrorIs(ERROR_ALREADY_EXISTS));
    EXPECT_EQ(WaitForOne(second, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForOne(m_event, 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(EventContract, AnEventIsGoneWithItsLastHandle)
{
    EXPECT_TRUE(SetNamedEvent(m_event));
    m_event.reset();
    m_event = MakeEvent(m_name);
    EXPECT_TRUE(LastErrorIs(ERROR_SUCCESS));
    EXPECT_EQ(WaitForOne(m_event, 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(EventContract, SettingLetsOneWaitPass)
{
    EXPECT_TRUE(SetNamedEvent(m_event));
    ExpectSetOnce(m_event, INFINITE);
}

TEST_F(EventContract, SettingTwiceIsSettingOnce)
{
    EXPECT_TRUE(SetNamedEvent(m_event));
    EXPECT_TRUE(SetNamedEvent(m_event));
    ExpectSetOnce(m_event);
}

TEST_F(EventContract, SettingLetsAWaitingThreadGoOn)
{
    ExpectGoesOn([&] { ExpectSetOnce(m_event, INFINITE); }, [&] { EXPECT_TRUE(SetNamedEvent(m_event)); });
}

TEST_F(EventContract, SettingLetsOneOfTwoWaitingThreadsGoOn)
{
    std::atomic<int> passed = 0;
    const auto wait = [&] {
        EXPECT_EQ(WaitForOne(m_event, INFINITE, FALSE), WAIT_OBJECT_0);
        ++passed;
    };
    CRunningThread first(wait);
    CRunningThread second(wait);
    LetPass(10);
    EXPECT_EQ(passed, 0);
    EXPECT_TRUE(SetNamedEvent(m_event));
    for (DWORD passedMs = 0; passed == 0 && passedMs < kLongMs; ++passedMs) {
        LetPass(1);
    }
    LetPass(10);
    EXPECT_EQ(passed, 1);
    EXPECT_TRUE(SetNamedEvent(m_event));
    first.Join();
    second.Join();
    EXPECT_EQ(passed, 2);
}

TEST_F(EventContract, OpeningFindsTheEventThatIsThere)
{
    const WaitHandle opened = OpenNamedEvent(m_name.c_str());
    ASSERT_NE(opened, nullptr);
    EXPECT_TRUE(SetNamedEvent(opened));
    ExpectSetOnce(m_event);
}

TEST_F(EventContract, OpeningMakesNoEvent)
{
    m_event.reset();
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(FailsWith(ERROR_FILE_NOT_FOUND, [&] { return OpenNamedEvent(m_name.c_str()) != nullptr; }));
    }
    m_event = CreateNamedEvent(m_name.c_str(), nullptr);
    EXPECT_TRUE(LastErrorIs(ERROR_SUCCESS)); // it did not exist
}

TEST_F(EventContract, AMutexIsNotOpenedAsAnEvent)
{
    const CString name = ObjectName(L"NoEvent");
    const WaitHandle mutex = CreateNamedMutex(name.c_str(), FALSE, nullptr);
    EXPECT_TRUE(FailsWith(ERROR_INVALID_HANDLE, [&] { return OpenNamedEvent(name.c_str()) != nullptr; }));
}

TEST_F(EventContract, AnotherProcessMaySetIt)
{
    EXPECT_TRUE(OtherProcessSetsEvent(m_name));
    ExpectSetOnce(m_event, kLongMs);
}

TEST_F(EventContract, AnotherProcessLetsAWaitingThreadGoOn)
{
    ExpectGoesOn([&] { EXPECT_EQ(WaitForOne(m_event, INFINITE, TRUE), WAIT_OBJECT_0); },
                 [&] { EXPECT_TRUE(OtherProcessSetsEvent(m_name)); });
}

TEST_F(EventContract, AnotherProcessCannotSetWhatNobodyHas)
{
    EXPECT_FALSE(OtherProcessSetsEvent(ObjectName(L"Missing")));
    m_event.reset();
    EXPECT_FALSE(OtherProcessSetsEvent(m_name));
}

TEST_F(EventContract, APulseWithNobodyWaitingIsLost)
{
    EXPECT_TRUE(PulseNamedEvent(m_event));
    EXPECT_EQ(WaitForOne(m_event, 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(EventContract, APulseLeavesASetEventNotSignalled)
{
    EXPECT_TRUE(SetNamedEvent(m_event));
    EXPECT_TRUE(PulseNamedEvent(m_event));
    EXPECT_EQ(WaitForOne(m_event, 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(EventContract, APulseLetsAWaitingThreadGoOn)
{
    for (const BOOL alertable : {FALSE, TRUE}) {
        CRunningThread waiter([&] { EXPECT_EQ(WaitForOne(m_event, INFINITE, alertable), WAIT_OBJECT_0); });
        PulseUntilEnd(waiter, m_event);
        EXPECT_EQ(WaitForOne(m_event, 0, FALSE), WAIT_TIMEOUT);
    }
}

TEST_F(EventContract, APulseLetsOneOfTwoWaitingThreadsGoOn)
{
    std::atomic<int> passed = 0;
    const auto wait = [&] {
        EXPECT_EQ(WaitForOne(m_event, INFINITE, FALSE), WAIT_OBJECT_0);
        ++passed;
    };
    CRunningThread first(wait);
    CRunningThread second(wait);
    int before = 0;
    for (DWORD passedMs = 0; passed < 2 && passedMs < kLongMs; ++passedMs) {
        EXPECT_TRUE(PulseNamedEvent(m_event));
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
    const CString name = ObjectName(L"Open");
    const WaitHandle event = CreateNamedEvent(name.c_str(), OpenToAll().get());
    ASSERT_NE(event, nullptr);
    EXPECT_TRUE(IsNamedObjectOpenToAll(name));
}

TEST_F(EventContract, ANullHandleFails)
{
    EXPECT_TRUE(FailsWith(ERROR_INVALID_HANDLE, [] { return SetNamedEvent(nullptr); }));
    EXPECT_TRUE(FailsWith(ERROR_INVALID_HANDLE, [] { return PulseNamedEvent(nullptr); }));
}

TEST_F(WaitContract, OperationsOnTheOtherKindFail)
{
    EXPECT_TRUE(FailsWith(ERROR_INVALID_HANDLE, [&] { return SetNamedEvent(m_mutex); }));
    EXPECT_TRUE(FailsWith(ERROR_INVALID_HANDLE, [&] { return PulseNamedEvent(m_mutex); }));
    EXPECT_TRUE(FailsWith(ERROR_INVALID_HANDLE, [&] { return ReleaseOwnedMutex(m_event); }));
    EXPECT_TRUE(FailsWith(ERROR_INVALID_HANDLE, [&] { return MakeMutex(m_name); }));
    EXPECT_TRUE(FailsWith(ERROR_INVALID_HANDLE, [&] { return MakeEvent(m_mutexName); }));
}

TEST_F(WaitContract, AWaitTakesOneTo64Objects)
{
    const std::vector<WaitHandle> objects(65, m_event);
    EXPECT_TRUE(FailsWith(ERROR_INVALID_PARAMETER, [&] { return WaitForAny({}, 0, FALSE) != WAIT_FAILED; }));
    EXPECT_TRUE(FailsWith(ERROR_INVALID_PARAMETER, [&] { return WaitForAny(objects, 0, FALSE) != WAIT_FAILED; }));
    EXPECT_EQ(WaitForAny(std::span(objects).subspan(1), 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(WaitContract, AWaitForOneTakesItsTime)
{
    for (const BOOL alertable : {FALSE, TRUE}) {
        const std::int64_t startMs = ClockMs();
        EXPECT_EQ(WaitForOne(m_event, 60, alertable), WAIT_TIMEOUT);
        EXPECT_GE(ClockMs() - startMs, 60 - kEarlyMs);
    }
}

TEST_F(WaitContract, AWaitForAnyTakesItsTime)
{
    const std::array<WaitHandle, 2> events = {MakeEvent(ObjectName(L"First")), MakeEvent(ObjectName(L"Second"))};
    const std::int64_t startMs = ClockMs();
    EXPECT_EQ(WaitForAny(events, 60, FALSE), WAIT_TIMEOUT);
    EXPECT_GE(ClockMs() - startMs, 60 - kEarlyMs);
    EXPECT_EQ(WaitForAny(events, 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(WaitContract, ANullHandleFails)
{
    EXPECT_TRUE(FailsWith(ERROR_INVALID_HANDLE, [&] { return WaitForOne(nullptr, 0, FALSE) != WAIT_FAILED; }));
    EXPECT_TRUE(FailsWith(ERROR_INVALID_HANDLE, [&] { return WaitForOne(nullptr, INFINITE, TRUE) != WAIT_FAILED; }));
    const std::array<WaitHandle, 2> withNull = {m_event, nullptr};
    EXPECT_TRUE(FailsWith(ERROR_INVALID_HANDLE, [&] { return WaitForAny(withNull, INFINITE, FALSE) != WAIT_FAILED; }));
}

TEST_F(WaitContract, AWaitForAnyTellsThePosition)
{
    const std::array<WaitHandle, 3> events = {MakeEvent(ObjectName(L"First")), MakeEvent(ObjectName(L"Second")),
                                              MakeEvent(ObjectName(L"Third"))};
    for (DWORD i = 0; i < events.size(); ++i) {
        EXPECT_TRUE(SetNamedEvent(events[i]));
        EXPECT_EQ(WaitForAny(events, INFINITE, FALSE), WAIT_OBJECT_0 + i);
        EXPECT_EQ(WaitForAny(events, 0, FALSE), WAIT_TIMEOUT);
    }
}

TEST_F(WaitContract, AWaitForAnyTakesOnlyTheFirstThatIsSignalled)
{
    const std::array<WaitHandle, 2> objects = {m_mutex, m_event};
    EXPECT_TRUE(SetNamedEvent(m_event));
    EXPECT_EQ(WaitForAny(objects, INFINITE, FALSE), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseOwnedMutex(m_mutex));
    EXPECT_EQ(WaitForOne(m_event, 0, FALSE), WAIT_OBJECT_0) << "the event is still set";

    const std::array<WaitHandle, 2> reversed = {m_event, m_mutex};
    EXPECT_TRUE(SetNamedEvent(m_event));
    EXPECT_EQ(WaitForAny(reversed, INFINITE, FALSE), WAIT_OBJECT_0);
    EXPECT_FALSE(ReleaseOwnedMutex(m_mutex)) << "the mutex was not taken";
}

TEST_F(WaitContract, AWaitForAnyPassesOverAMutexThatIsTaken)
{
    const std::array<WaitHandle, 2> objects = {m_mutex, m_event};
    OtherProcessAcquiresMutex(m_mutexName);
    EXPECT_EQ(WaitForAny(objects, 5, FALSE), WAIT_TIMEOUT);
    EXPECT_TRUE(SetNamedEvent(m_event));
    EXPECT_EQ(WaitForAny(objects, INFINITE, FALSE), WAIT_OBJECT_0 + 1);
    OtherProcessReleasesMutex(m_mutexName);
    EXPECT_EQ(WaitForAny(objects, kLongMs, FALSE), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseOwnedMutex(m_mutex));
}

TEST_F(WaitContract, AWaitForAnyGoesOnWhenOneBecomesSignalled)
{
    const std::array<WaitHandle, 2> objects = {m_mutex, m_event};
    OtherProcessAcquiresMutex(m_mutexName);
    std::vector<DWORD> results;
    CRunningThread waiter([&] {
        results.push_back(WaitForAny(objects, INFINITE, FALSE));
        results.push_back(WaitForAny(objects, INFINITE, FALSE));
        EXPECT_TRUE(ReleaseOwnedMutex(m_mutex));
    });
    LetPass(10);
    EXPECT_TRUE(SetNamedEvent(m_event));
    LetPass(10);
    EXPECT_FALSE(waiter.HasEnded());
    OtherProcessReleasesMutex(m_mutexName);
    waiter.Join();
    EXPECT_EQ(results, (std::vector<DWORD>{WAIT_OBJECT_0 + 1, WAIT_OBJECT_0}));
}

TEST_F(WaitContract, APulseEndsAWaitForAny)
{
    OtherProcessAcquiresMutex(m_mutexName);
    CRunningThread waiter([&] {
        EXPECT_EQ(WaitForAny(std::array{m_mutex, m_event}, INFINITE, FALSE), WAIT_OBJECT_0 + 1);
    });
    PulseUntilEnd(waiter, m_event);
    OtherProcessReleasesMutex(m_mutexName);
}

TEST_F(WaitContract, AWaitForAnyTellsAnAbandonedMutexByPosition)
{
    AbandonInOtherThread(m_mutex);
    EXPECT_EQ(WaitForAny(std::array<WaitHandle, 2>{m_mutex, m_event}, kLongMs, FALSE), WAIT_ABANDONED_0);
    EXPECT_TRUE(ReleaseOwnedMutex(m_mutex));
    AbandonInOtherThread(m_mutex);
    EXPECT_EQ(WaitForAny(std::array<WaitHandle, 2>{m_event, m_mutex}, kLongMs, FALSE), WAIT_ABANDONED_0 + 1);
    EXPECT_TRUE(ReleaseOwnedMutex(m_mutex));
}

} // namespace
} // namespace contract
