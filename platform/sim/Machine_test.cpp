#include "platform/sim/Machine.h"

#include "platform/Apartment.h"
#include "platform/Clock.h"
#include "platform/DebugOutput.h"
#include "platform/Dom.h"
#include "platform/LastError.h"
#include "platform/portable/FileTime.h"
#include "platform/Settings.h"
#include "platform/Sync.h"
#include "platform/Timer.h"
#include "testing/TestThread.h"

#include <gmock/gmock.h>
#include <new>

namespace platform::sim {
namespace {

using testing::ElementsAre;
using testing_support::StartBody;

std::vector<WORD> LocalClock()
{
    SYSTEMTIME now{};
    ReadLocalClock(&now);
    return {now.wYear, now.wMonth, now.wDayOfWeek, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds};
}

TEST(SimClock, StartsAtItsFixedTimeAndPassesWithVirtualTime)
{
    CMachine machine;
    EXPECT_THAT(LocalClock(), ElementsAre(2012, 7, 1, 2, 13, 0, 0, 0));
    EXPECT_EQ(ReadTime(), 1'341'201'600);
    machine.RunFor(86'400'000 + 1'999);
    EXPECT_THAT(LocalClock(), ElementsAre(2012, 7, 2, 3, 13, 0, 1, 999));
    EXPECT_EQ(ReadTime(), 1'341'288'001);
}

TEST(SimClock, CanBeSetInBothDirections)
{
    CMachine machine;
    machine.RunFor(500);
    machine.SetLocalClock({2013, 1, 0, 1, 0, 0, 0, 0});
    EXPECT_THAT(LocalClock(), ElementsAre(2013, 1, 2, 1, 0, 0, 0, 0));
    machine.SetLocalClock({2011, 12, 0, 31, 23, 59, 59, 999});
    machine.RunFor(1);
    EXPECT_THAT(LocalClock(), ElementsAre(2012, 1, 0, 1, 0, 0, 0, 0));
    EXPECT_EQ(machine.ElapsedMs(), 501);
}

TEST(SimClock, OffsetMovesLocalTimeOnly)
{
    CMachine machine;
    machine.SetUtcOffset(-5 * 60);
    EXPECT_THAT(LocalClock(), ElementsAre(2012, 7, 0, 1, 23, 0, 0, 0));
    EXPECT_EQ(ReadTime(), 1'341'201'600);
    SYSTEMTIME local{};
    EXPECT_TRUE(TimeToLocalCalendar(0, &local));
    EXPECT_EQ(local.wYear, 1969);
    EXPECT_EQ(local.wHour, 19);
    EXPECT_EQ(LocalCalendarToTime(local), 0);
    const FILETIME localCount{5, 0x1000};
    FILETIME utcCount{};
    EXPECT_TRUE(LocalToUtcFileTime(&localCount, &utcCount));
    EXPECT_EQ(CountOf(utcCount) - CountOf(localCount), 5 * 3'600 * 10'000'000ULL);
}

TEST(SimClock, ConversionsRefuseWhatTheSystemRefuses)
{
    CMachine machine;
    SYSTEMTIME local{1, 1, 1, 1, 1, 1, 1, 1};
    EXPECT_FALSE(TimeToLocalCalendar(-1, &local));
    EXPECT_EQ(local.wYear, 0);
    EXPECT_EQ(local.wMilliseconds, 0);
    EXPECT_TRUE(TimeToLocalCalendar(32'535'215'999, &local));
    EXPECT_FALSE(TimeToLocalCalendar(32'535'216'000, &local));
    EXPECT_EQ(LocalCalendarToTime({1970, 1, 0, 1, 8, 59, 59, 0}), -1);
    EXPECT_EQ(LocalCalendarToTime({1970, 1, 0, 1, 9, 0, 0, 0}), 0);
    EXPECT_EQ(LocalCalendarToTime({3001, 1, 0, 1, 8, 59, 59, 0}), 32'535'215'999);
    EXPECT_EQ(LocalCalendarToTime({3001, 1, 0, 1, 9, 0, 0, 0}), -1);
    EXPECT_EQ(LocalCalendarToTime({2012, 2, 0, 30, 12, 0, 0, 0}), LocalCalendarToTime({2012, 3, 0, 1, 12, 0, 0, 0}));
}

TEST(SimSettings, ANumberIsStoredAndRemovedWhateverTheCaseOfItsName)
{
    CMachine machine;
    machine.PutDword(Hive::kPerUser, L"Software\\Halvex", L"Interval", 0x01020304);
    SettingsValue value;
    EXPECT_TRUE(QuerySettingsValue(Hive::kPerUser, L"Software\\Halvex", L"Interval", &value));
    EXPECT_EQ(value.type, REG_DWORD);
    EXPECT_THAT(value.data, ElementsAre(4, 3, 2, 1));
    machine.RemoveSetting(Hive::kPerUser, L"software\\halvex", L"INTERVAL");
    EXPECT_FALSE(QuerySettingsValue(Hive::kPerUser, L"Software\\Halvex", L"Interval", &value));
}

TEST(SimSettings, TextIsStoredTerminated)
{
    CMachine machine;
    machine.PutText(Hive::kMachine, L"key", L"name", L"a\u3042");
    SettingsValue value;
    ASSERT_TRUE(QuerySettingsValue(Hive::kMachine, L"key", L"name", &value));
    EXPECT_EQ(value.type, REG_SZ);
    EXPECT_THAT(value.data, ElementsAre('a', 0, 0x42, 0x30, 0, 0));
    EXPECT_EQ(TextOfSetting(value), L"a\u3042");
}

CString g_tapped;

TEST(SimDebugOutput, IsCollectedAndGivenToTheTap)
{
    CMachine machine;
    g_tapped.clear();
    SetDebugTap([](const CString& text) { g_tapped += text; });
    OutputDebugText(L"one\n");
    OutputDebugText(L"two\n");
    SetDebugTap(nullptr);
    OutputDebugText(L"three\n");
    EXPECT_THAT(machine.DebugLines(), ElementsAre(L"one\n", L"two\n", L"three\n"));
    EXPECT_EQ(g_tapped, L"one\ntwo\n");
    machine.ClearDebugLines();
    EXPECT_TRUE(machine.DebugLines().empty());
}

TEST(SimApartment, BalanceCountsAllThreads)
{
    CMachine machine;
    EnterApartment();
    WaitForThread(StartBody([] { EnterApartment(); }), INFINITE);
    EXPECT_EQ(machine.ApartmentBalance(), 2);
    LeaveApartment();
    EXPECT_EQ(machine.ApartmentBalance(), 1);
}

TEST(SimFaults, NthCallFromNowFailsOnce)
{
    CMachine machine;
    EXPECT_NE(StartThread([](void*) -> DWORD { return 0; }, nullptr), nullptr);
    machine.FailCall(Call::kStartThread, 2, 8);
    EXPECT_NE(StartThread([](void*) -> DWORD { return 0; }, nullptr), nullptr);
    EXPECT_EQ(StartThread([](void*) -> DWORD { return 0; }, nullptr), nullptr);
    EXPECT_EQ(GetLastErrorCode(), 8U);
    EXPECT_NE(StartThread([](void*) -> DWORD { return 0; }, nullptr), nullptr);
    EXPECT_EQ(machine.CallCount(Call::kStartThread), 4U);
    machine.RunUntilIdle();
}

TEST(SimFaults, SeveralFaultsOfOneCallAreIndependent)
{
    CMachine machine;
    machine.FailCall(Call::kCreateNamedMutex, 1, 5);
    machine.FailCall(Call::kCreateNamedMutex, 3, 8);
    std::vector<DWORD> errors;
    for (int i = 0; i < 4; ++i) {
        errors.push_back(CreateNamedMutex(L"mutex", FALSE, nullptr) == nullptr ? GetLastErrorCode() : 0);
    }
    EXPECT_THAT(errors, ElementsAre(5, 0, 8, 0));
}

TEST(SimFaults, EveryCallFailsUntilFaultsAreCleared)
{
    CMachine machine;
    machine.FailEvery(Call::kMakeTimer, 14);
    machine.FailCall(Call::kMakeTimer, 1, 8);
    EXPECT_EQ(MakeTimer(), nullptr);
    EXPECT_EQ(GetLastErrorCode(), 8U) << "the particular fault comes before the general one";
    EXPECT_EQ(MakeTimer(), nullptr);
    EXPECT_EQ(GetLastErrorCode(), 14U);
    machine.ClearFaults();
    EXPECT_NE(MakeTimer(), nullptr);
    EXPECT_EQ(machine.CallCount(Call::kMakeTimer), 3U);
}

TEST(SimFaults, FailingCallsGiveTheirFailure)
{
    CMachine machine;
    const WaitHandle mutex = CreateNamedMutex(L"mutex", TRUE, nullptr);
    const TimerPtr timer = MakeTimer();
    LARGE_INTEGER due;
    due.QuadPart = -1;
    const SecurityDescriptorPtr descriptor = InitializeDescriptor();
    SYSTEMTIME calendar{2012, 7, 0, 1, 0, 0, 0, 0};
    FILETIME count{};
    for (int call = 0; call < static_cast<int>(Call::kCount); ++call) {
        machine.FailEvery(static_cast<Call>(call), 1234);
    }
    const auto failed = [](bool failure) {
        const DWORD code = GetLastErrorCode();
        SetLastErrorCode(0);
        return failure && code == 1234;
    };
    EXPECT_TRUE(failed(!CalendarToFileTime(&calendar, &count)));
    EXPECT_TRUE(failed(!LocalToUtcFileTime(&count, &count)));
    EXPECT_TRUE(failed(LocalCalendarToTime(calendar) == -1));
    EXPECT_TRUE(failed(!TimeToLocalCalendar(0, &calendar)));
    EXPECT_EQ(calendar.wYear, 0);
    EXPECT_TRUE(failed(CreateNamedEvent(L"event", nullptr) == nullptr));
    EXPECT_TRUE(failed(!ReleaseOwnedMutex(mutex)));
    EXPECT_TRUE(failed(WaitForOne(mutex, INFINITE, FALSE) == WAIT_FAILED));
    EXPECT_TRUE(failed(WaitForAny(std::array{mutex}, INFINITE, FALSE) == WAIT_FAILED));
    EXPECT_TRUE(failed(!ArmTimer(timer, &due, nullptr, nullptr)));
    EXPECT_EQ(machine.ArmedTimerCount(), 0U);
    EXPECT_TRUE(failed(!DisarmTimer(timer)));
    EXPECT_TRUE(failed(InitializeDescriptor() == nullptr));
    EXPECT_TRUE(failed(!SetNullDacl(descriptor)));
    SettingsValue value;
    EXPECT_TRUE(failed(!QuerySettingsValue(Hive::kMachine, L"key", L"name", &value)));
    EXPECT_THROW(OutputDebugText(L"text"), std::bad_alloc);
    EXPECT_TRUE(machine.DebugLines().empty());
}

class SimDom : public testing::Test {
protected:
    SimDom() { EnterApartment(); }
    ~SimDom() override { LeaveApartment(); }

    CMachine m_machine;
};

TEST_F(SimDom, FaultGivesItsStatusAndAnEmptyResult)
{
    DomDocumentPtr document;
    bool loaded = false;
    DomElementPtr element;
    ASSERT_EQ(CreateDomDocument(&document), S_OK);
    ASSERT_EQ(LoadDomText(document, L"<a><b/></a>", &loaded), S_OK);
    ASSERT_EQ(GetDomDocumentElement(document, &element), S_OK);
    m_machine.FailCall(Call::kGetDomNodeName, 1, static_cast<DWORD>(E_POINTER));
    CString name = L"before";
    EXPECT_EQ(GetDomTagName(element, &name), E_POINTER);
    EXPECT_EQ(name, L"");
    EXPECT_EQ(GetDomTagName(element, &name), S_OK);
    m_machine.FailCall(Call::kCreateDomDocument, 1, static_cast<DWORD>(E_NOINTERFACE));
    EXPECT_EQ(CreateDomDocument(&document), E_NOINTERFACE);
    EXPECT_EQ(document, nullptr);
}

} // namespace
} // namespace platform::sim
