#include "platform/Arguments.h"
#include "platform/Clock.h"
#include "platform/DebugOutput.h"
#include "platform/Files.h"
#include "platform/Http.h"
#include "platform/Security.h"
#include "platform/Settings.h"
#include "platform/sim/Machine.h"
#include "platform/sim/Observer.h"
#include "platform/Sync.h"
#include "platform/Timer.h"
#include "testing/TestThread.h"

#include <gmock/gmock.h>
#include <new>

namespace platform::sim {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing_support::StartBody;

TEST(SimProcess, EndsWithTheLastOfItsThreads)
{
    CMachine machine;
    const DWORD process = machine.StartProcess(1, [] {
        StartBody([] { CMachine::Current().RunFor(50); });
        return 3;
    });
    EXPECT_FALSE(machine.ExitCodeOf(process));
    machine.RunFor(49);
    EXPECT_FALSE(machine.ExitCodeOf(process));
    machine.RunFor(2);
    EXPECT_EQ(machine.ExitCodeOf(process), 3);
}

TEST(SimProcess, HasTheArgumentsItWasStartedWith)
{
    CMachine machine;
    std::vector<std::vector<CString>> seen;
    const auto look = [&] {
        seen.push_back(ProgramArguments(0, nullptr));
        return 0;
    };
    machine.StartProcess(1, look, {L"/Exit", L"\u65e5 \u672c"});
    machine.StartProcess(1, look);
    machine.RunUntilIdle();
    EXPECT_THAT(seen, ElementsAre(ElementsAre(L"/Exit", L"\u65e5 \u672c"), IsEmpty()));
    EXPECT_THAT(ProgramArguments(0, nullptr), IsEmpty());
}

TEST(SimProcess, EndsWhereEndProcessIsCalled)
{
    CMachine machine;
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> watched = held;
    bool wentOn = false;
    const DWORD process = machine.StartProcess(1, [&, held = std::move(held)] {
        EndProcess(*held + 4);
        wentOn = true;
        return 6;
    });
    machine.RunUntilIdle();
    EXPECT_EQ(machine.ExitCodeOf(process), 5);
    EXPECT_FALSE(wentOn);
    EXPECT_TRUE(watched.expired());
}

TEST(SimProcess, EndsWithItsLastThreadAfterEndProcess)
{
    CMachine machine;
    const DWORD process = machine.StartProcess(1, []() -> int {
        StartBody([] { CMachine::Current().RunFor(50); });
        EndProcess(5);
    });
    machine.RunFor(49);
    EXPECT_FALSE(machine.ExitCodeOf(process));
    machine.RunFor(2);
    EXPECT_EQ(machine.ExitCodeOf(process), 5);
}

TEST(SimProcessDeathTest, TheOneThatMadeTheMachineCannotBeEnded)
{
    const CMachine machine;
    EXPECT_DEATH(EndProcess(0), "the process that made it is to end");
}

TEST(SimProcess, HasAnIdentifierOfItsOwnThatItsThreadsShare)
{
    CMachine machine;
    std::vector<DWORD> seen;
    const auto look = [&] {
        seen.push_back(CurrentProcessIdentifier());
        StartBody([&] { seen.push_back(CurrentProcessIdentifier()); });
        return 0;
    };
    const DWORD first = machine.StartProcess(1, look);
    const DWORD second = machine.StartProcess(2, look);
    machine.RunUntilIdle();
    EXPECT_THAT(seen, ElementsAre(first, second, first, second));
    EXPECT_NE(first, second);
    EXPECT_NE(first, CurrentProcessIdentifier());
}

TEST(SimProcess, LetsGoOfWhatItsEntryHoldsBeforeItHasEnded)
{
    CMachine machine;
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> watched = held;
    const DWORD process = machine.StartProcess(1, [held = std::move(held)] { return *held; });
    machine.RunUntilIdle();
    EXPECT_EQ(machine.ExitCodeOf(process), 1);
    EXPECT_TRUE(watched.expired());
}

TEST(SimProcessDeathTest, AskingForOneThatNeverWasEndsTheProgram)
{
    EXPECT_DEATH(
        {
            CMachine machine;
            static_cast<void>(machine.ExitCodeOf(5));
        },
        "there is no process 5");
}

TEST(SimProcess, ThreadNumbersGoOnThoughEndedThreadsAreForgotten)
{
    CMachine machine;
    std::vector<DWORD> seen;
    for (int i = 0; i < 3; ++i) {
        StartBody([&] { seen.push_back(CurrentThreadIdentifier()); });
        machine.RunUntilIdle();
    }
    EXPECT_THAT(seen, ElementsAre(2U, 3U, 4U));
}

TEST(SimProcess, EndedThreadsAreClearedAwayByTheNextStart)
{
    CMachine machine;
    for (int i = 0; i < 20; ++i) {
        const ThreadPtr thread = StartBody([] {});
        EXPECT_EQ(WaitForThread(thread, INFINITE), WAIT_OBJECT_0);
        EXPECT_EQ(machine.ThreadCount(), 2U);
    }
}

TEST(SimSession, NamedObjectsAreTheSessionsUnlessGlobal)
{
    CMachine machine;
    const WaitHandle own = CreateNamedEvent(L"event", nullptr);
    const WaitHandle global = CreateNamedMutex(L"Global\\mutex", TRUE, nullptr);
    DWORD localResult = WAIT_FAILED;
    DWORD globalResult = WAIT_FAILED;
    machine.StartProcess(2, [&] {
        const WaitHandle event = CreateNamedEvent(L"event", nullptr);
        const WaitHandle mutex = CreateNamedMutex(L"Global\\mutex", FALSE, nullptr);
        localResult = WaitForOne(event, 10, FALSE);
        globalResult = WaitForOne(mutex, 0, FALSE);
        return 0;
    });
    machine.RunFor(1);
    EXPECT_TRUE(machine.NamedObjectExists(L"event", 2));
    EXPECT_EQ(machine.NamedObjectCount(), 3U);
    SetNamedEvent(own);
    machine.RunFor(10);
    EXPECT_EQ(localResult, WAIT_TIMEOUT);
    EXPECT_EQ(globalResult, WAIT_TIMEOUT);
    EXPECT_FALSE(machine.NamedObjectExists(L"event", 2));
    EXPECT_TRUE(machine.NamedObjectExists(L"Global\\mutex", 2));
    EXPECT_EQ(machine.NamedObjectCount(), 2U);
}

TEST(SimSession, OtherProcessActsInTheSessionAskedFor)
{
    CMachine machine;
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    EXPECT_FALSE(machine.OtherProcessSetsEvent(L"event", 2));
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
    EXPECT_TRUE(machine.OtherProcessSetsEvent(L"event", 1));
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_OBJECT_0);
    machine.OtherProcessAcquiresMutex(L"mutex", 2);
    EXPECT_FALSE(machine.IsMutexOwned(L"mutex"));
    EXPECT_TRUE(machine.IsMutexOwned(L"mutex", 2));
    machine.OtherProcessReleasesMutex(L"mutex", 2);
}

DWORD ReadSetting(Hive hive)
{
    SettingsValue value;
    return QuerySettingsValue(hive, L"key", L"value", &value) ? value.data.at(0) : 0;
}

TEST(SimSession, PerUserSettingsAreOfTheSessionsUser)
{
    CMachine machine;
    machine.PutDword(Hive::kPerUser, L"key", L"value", 1);
    machine.PutDword(Hive::kPerUser, L"key", L"value", 2, 2);
    machine.PutDword(Hive::kMachine, L"key", L"value", 3);
    std::vector<DWORD> seen;
    const auto look = [&] {
        seen.insert(seen.end(), {ReadSetting(Hive::kPerUser), ReadSetting(Hive::kMachine)});
        return 0;
    };
    look();
    machine.StartProcess(2, look);
    machine.StartProcess(3, look);
    machine.RunUntilIdle();
    EXPECT_THAT(seen, ElementsAre(1U, 3U, 2U, 3U, 0U, 3U));
    machine.RemoveSetting(Hive::kPerUser, L"key", L"value", 2);
    machine.StartProcess(2, look);
    machine.RunUntilIdle();
    EXPECT_EQ(seen.at(6), 0U);
    EXPECT_EQ(ReadSetting(Hive::kPerUser), 1U);
}

TEST(SimSession, WebIsToldWhoAsks)
{
    CMachine machine;
    const DWORD process = machine.StartProcess(3, [] {
        const HttpSessionPtr session = OpenHttpSession(L"agent", 0);
        const HttpConnectionPtr connection = OpenHttpConnection(session, L"host", 80);
        const HttpRequestPtr request = OpenHttpRequest(connection, L"/", 0);
        return SendHttpRequest(request);
    });
    machine.RunUntilIdle();
    ASSERT_EQ(machine.HttpExchanges().size(), 1U);
    EXPECT_EQ(machine.HttpExchanges()[0].processId, process);
    EXPECT_EQ(machine.HttpExchanges()[0].session, 3U);
}

TEST(SimCollecting, CanBeSwitchedOff)
{
    CMachine machine;
    machine.KeepDebugLines(false);
    machine.KeepHttpExchanges(false);
    OutputDebugText(L"lost");
    const HttpSessionPtr session = OpenHttpSession(L"agent", 0);
    const HttpConnectionPtr connection = OpenHttpConnection(session, L"host", 80);
    EXPECT_TRUE(SendHttpRequest(OpenHttpRequest(connection, L"/", 0)));
    EXPECT_THAT(machine.DebugLines(), IsEmpty());
    EXPECT_THAT(machine.HttpExchanges(), IsEmpty());
    machine.KeepDebugLines(true);
    OutputDebugText(L"kept");
    EXPECT_THAT(machine.DebugLines(), ElementsAre(L"kept"));
}

// Two o'clock becomes three at 1000 days after 1970, and three becomes two at 1100 days; both by UTC+1.
constexpr std::int64_t kDay = 86'400;
constexpr std::int64_t kForth = 1'000 * kDay + 3'600;
constexpr std::int64_t kBack = 1'100 * kDay + 3'600;

int HourOf(std::int64_t time)
{
    SYSTEMTIME local{};
    return TimeToLocalCalendar(time, &local) ? local.wHour : -1;
}

class SimDaylightSaving : public testing::Test {
protected:
    SimDaylightSaving()
    {
        machine.SetUtcOffset(60);
        machine.PlanUtcOffset(kForth, 120);
        machine.PlanUtcOffset(kBack, 60);
    }

    CMachine machine;
};

TEST_F(SimDaylightSaving, ConvertsWithTheOffsetOfTheTimeConverted)
{
    EXPECT_EQ(HourOf(kForth - 1), 1);
    EXPECT_EQ(HourOf(kForth), 3);
    EXPECT_EQ(HourOf(kBack - 1), 2);
    EXPECT_EQ(HourOf(kBack), 2);
    EXPECT_EQ(HourOf(kBack + 3'600), 3);
    for (const std::int64_t time : {kForth - 1, kForth, kForth + kDay, kBack - 3'601, kBack + 3'600, kBack + kDay}) {
        SYSTEMTIME local{};
        ASSERT_TRUE(TimeToLocalCalendar(time, &local));
        EXPECT_EQ(LocalCalendarToTime(local), time);
    }
}

TEST_F(SimDaylightSaving, HourThatComesTwiceIsTheEarlierOne)
{
    SYSTEMTIME local{};
    ASSERT_TRUE(TimeToLocalCalendar(kBack + 60, &local));
    EXPECT_EQ(LocalCalendarToTime(local), kBack + 60 - 3'600);
}

TEST_F(SimDaylightSaving, HourThatIsLeftOutCountsByTheOffsetBefore)
{
    SYSTEMTIME local{};
    ASSERT_TRUE(TimeToLocalCalendar(kForth, &local));
    local.wHour = 2;
    local.wMinute = 30;
    EXPECT_EQ(LocalCalendarToTime(local), kForth + 30 * 60);
}

TEST_F(SimDaylightSaving, FileTimesAndTheClockUseThePresentOffset)
{
    SYSTEMTIME local{};
    ASSERT_TRUE(TimeToLocalCalendar(kForth - 1, &local));
    machine.SetLocalClock(local);
    EXPECT_EQ(ReadTime(), kForth - 1);
    FILETIME count{};
    FILETIME before{};
    FILETIME after{};
    ASSERT_TRUE(CalendarToFileTime(&local, &count));
    ASSERT_TRUE(LocalToUtcFileTime(&count, &before));
    machine.RunFor(1'000);
    ReadLocalClock(&local);
    EXPECT_EQ(local.wHour, 3);
    ASSERT_TRUE(LocalToUtcFileTime(&count, &after));
    EXPECT_EQ(before.dwLowDateTime - after.dwLowDateTime, static_cast<DWORD>(36'000'000'000));
    machine.SetUtcOffset(60);
    EXPECT_EQ(HourOf(kForth), 2);
}

TEST(SimSuspend, MovesTheWallClockAloneAndWhatHangsOnIt)
{
    CMachine machine;
    const std::int64_t begin = ReadTime();
    const TimerPtr relative = MakeTimer();
    const TimerPtr absolute = MakeTimer();
    int relativeRan = 0;
    int absoluteRan = 0;
    const TimerRoutine count = [](void* argument, DWORD, DWORD) { ++*static_cast<int*>(argument); };
    LARGE_INTEGER due{};
    due.QuadPart = -10'000'000LL * 60;
    ASSERT_TRUE(ArmTimer(relative, &due, count, &relativeRan));
    due.QuadPart = (begin + 60 + 11'644'473'600) * 10'000'000;
    ASSERT_TRUE(ArmTimer(absolute, &due, count, &absoluteRan));
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    machine.PassSuspended(3'600'000);
    EXPECT_EQ(machine.ElapsedMs(), 0);
    EXPECT_EQ(ReadTime(), begin + 3'600);
    EXPECT_EQ(WaitForOne(event, 1'000, TRUE), WAIT_IO_COMPLETION);
    EXPECT_EQ(absoluteRan, 1);
    EXPECT_EQ(relativeRan, 0);
    EXPECT_EQ(WaitForOne(event, INFINITE, TRUE), WAIT_IO_COMPLETION);
    EXPECT_EQ(relativeRan, 1);
    EXPECT_EQ(machine.ElapsedMs(), 60'000);
}

TEST(SimFaultPlan, IsAskedAtEveryCallUntilItIsCleared)
{
    CMachine machine;
    std::vector<Call> asked;
    machine.SetFaultPlan([&](Call call) {
        asked.push_back(call);
        return call == Call::kMakeTimer ? std::optional<DWORD>(9) : std::nullopt;
    });
    machine.FailCall(Call::kCreateNamedEvent, 1, 8);
    EXPECT_EQ(MakeTimer(), nullptr);
    EXPECT_EQ(CreateNamedEvent(L"event", nullptr), nullptr);
    EXPECT_NE(CreateNamedMutex(L"mutex", FALSE, nullptr), nullptr);
    EXPECT_THAT(asked, ElementsAre(Call::kMakeTimer, Call::kCreateNamedMutexThrows, Call::kCreateNamedMutex));
    machine.ClearFaults();
    EXPECT_NE(MakeTimer(), nullptr);
    EXPECT_EQ(asked.size(), 3U);
}

TEST(SimFault, NamedMutexCanThrow)
{
    CMachine machine;
    machine.FailCall(Call::kCreateNamedMutexThrows, 1, 0);
    EXPECT_THROW(CreateNamedMutex(L"mutex", FALSE, nullptr), std::bad_alloc);
    EXPECT_NE(CreateNamedMutex(L"mutex", FALSE, nullptr), nullptr);
}

class CWatcher : public CObserver {
public:
    void OnMutexAcquired(unsigned session, const CString& name, const Caller& owner) override
    {
        Add(L"acquired", session, name, owner);
    }
    void OnMutexReleased(unsigned session, const CString& name, const Caller& owner, bool abandoned) override
    {
        Add(abandoned ? L"abandoned" : L"released", session, name, owner);
    }
    void OnFileOpened(const Caller& caller, const CString& path) override { Add(L"opened", 0, path, caller); }
    void OnFileClosed(const Caller& caller, const CString& path, const SimFile& file) override
    {
        Add(L"closed", static_cast<unsigned>(file.bytes.size()), path, caller);
    }
    void OnDebugLine(const Caller& caller, const CString& text) override { Add(L"line", 0, text, caller); }
    void OnThreadStarted(const Caller& starter, const Caller& started) override
    {
        Add(L"started", started.threadId, L"thread", starter);
    }
    void OnThreadEnded(const Caller& thread) override { Add(L"ended", 0, L"thread", thread); }
    void OnObjectMade(unsigned session, const CString& name) override { Add(L"made", session, name, {}); }
    void OnEventPulsed(unsigned session, const CString& name, const Caller& caller) override
    {
        Add(L"pulsed", session, name, caller);
    }
    void OnSettingQueried(const Caller& caller, Hive hive, const CString& keyPath, const CString& valueName,
                          const SettingsValue* value) override
    {
        Add(value == nullptr ? L"missed" : L"read", static_cast<unsigned>(hive), keyPath + L":" + valueName, caller);
    }

    std::vector<CString> events;

private:
    void Add(const CString& what, unsigned number, const CString& name, const Caller& caller)
    {
        events.push_back(what + L" " + std::to_wstring(number) + L" " + name + L" by " +
                         std::to_wstring(caller.processId) + L"/" + std::to_wstring(caller.threadId) + L" of " +
                         std::to_wstring(caller.session));
    }
};

TEST(SimObserver, SeesMutexesChangeHands)
{
    CMachine machine;
    CWatcher watcher;
    machine.SetObserver(&watcher);
    const WaitHandle mutex = CreateNamedMutex(L"Global\\m", TRUE, nullptr);
    WaitForOne(mutex, 0, FALSE);
    machine.StartProcess(2, [&] { return static_cast<int>(WaitForOne(mutex, INFINITE, FALSE)); });
    machine.RunUntilIdle();
    ReleaseOwnedMutex(mutex);
    ReleaseOwnedMutex(mutex);
    machine.RunUntilIdle();
    std::erase_if(watcher.events, [](const CString& event) { return event.find(L"thread") != CString::npos; });
    EXPECT_THAT(watcher.events,
                ElementsAre(L"made 0 Global\\m by 0/0 of 0", L"acquired 0 Global\\m by 1000/1 of 1",
                            L"released 0 Global\\m by 1000/1 of 1", L"acquired 0 Global\\m by 3000/2 of 2",
                            L"abandoned 0 Global\\m by 3000/2 of 2"));
    machine.SetObserver(nullptr);
    WaitForOne(mutex, 0, FALSE);
    EXPECT_EQ(watcher.events.size(), 5U);
}

TEST(SimObserver, SeesThreadsEventsAndSettings)
{
    CMachine machine;
    CWatcher watcher;
    machine.SetObserver(&watcher);
    machine.PutDword(Hive::kMachine, L"key", L"value", 1);
    machine.StartProcess(2, [] {
        StartBody([] { ReadSetting(Hive::kMachine); });
        ReadSetting(Hive::kPerUser);
        return 0;
    });
    machine.RunUntilIdle();
    const WaitHandle event = CreateNamedEvent(L"event", nullptr);
    PulseNamedEvent(event);
    EXPECT_EQ(CreateNamedEvent(L"event", nullptr), event);
    EXPECT_THAT(watcher.events, ElementsAre(L"started 2 thread by 1000/1 of 1", L"started 3 thread by 3000/2 of 2",
                                            L"missed 0 key:value by 3000/2 of 2", L"ended 0 thread by 3000/2 of 2",
                                            L"read 1 key:value by 3000/3 of 2", L"ended 0 thread by 3000/3 of 2",
                                            L"made 1 event by 0/0 of 0", L"pulsed 1 event by 1000/1 of 1"));
}

TEST(SimObserver, SeesFilesAndDebugLines)
{
    CMachine machine;
    CWatcher watcher;
    machine.SetObserver(&watcher);
    const SecurityDescriptorPtr security = InitializeDescriptor();
    OutputFilePtr file = OpenForReplace(L"file", security.get());
    ASSERT_NE(file, nullptr);
    WriteFileBytes(file, "abc", 3);
    file.reset();
    OutputDebugText(L"text");
    EXPECT_THAT(watcher.events, ElementsAre(L"opened 0 file by 1000/1 of 1", L"closed 3 file by 1000/1 of 1",
                                            L"line 0 text by 1000/1 of 1"));
}

} // namespace
} // namespace platform::sim
