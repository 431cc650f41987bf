#include "engine/AmporaUpdater.h"

#include "config/SharedNames.h"
#include "config/TraceLog.h"
#include "engine/WaitTableTimer.h"
#include "platform/Clock.h"
#include "platform/sim/Machine.h"
#include "testing/SlotOrder.h"
#include "testing/Trace.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using platform::Hive;
using platform::sim::Call;
using platform::sim::SimFile;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;
using testing_support::CountTrace;
using testing_support::HttpAnswer;
using testing_support::HttpExchange;
using testing_support::SlotOf;
using testing_support::TraceLine;
using testing_support::TraceMessages;

constexpr wchar_t kMainKey[] = L"Software\\Halvex\\AmporaSrv";
constexpr char kUpdateName[] = "CAmporaUpdater::Update";
constexpr char kUpdateOneName[] = "CAmporaUpdater::UpdateOnePowerCompany";
constexpr char kIntervalName[] = "CAmporaUpdater::SetIntervalUpdate";
constexpr char kThreadName[] = "CAmporaUpdater::ThreadProc";

// Opens what tests look at.
class TestUpdater : public CAmporaUpdater {
public:
    using CAmporaThread::IsExitSet;
};

// What one OutData call got.
struct Written {
    DWORD dataType;
    std::vector<_AmporaOneData> records;
    SYSTEMTIME writeTime;
};

// A site whose answers are functions. By default every report gives one record that covers the whole day.
class FakeSite : public CAmporaSiteConfig {
public:
    using Records = std::unique_ptr<CAmporaDataCollection>;

    CString GetURL(DWORD dataType, SYSTEMTIME day) override
    {
        days.push_back(day);
        return url(dataType, day);
    }
    Records AnalyzeData(DWORD dataType, CString body, DWORD status) override { return analyze(dataType, body, status); }
    void OutData(DWORD dataType, const CAmporaDataCollection* collection, SYSTEMTIME writeTime) override
    {
        const auto& records = collection->Records();
        written.push_back({dataType, {records.begin(), records.end()}, writeTime});
        out(dataType);
    }

    static Records WholeDay(const SYSTEMTIME& day)
    {
        SYSTEMTIME start = day;
        start.wHour = start.wMinute = start.wSecond = 0;
        SYSTEMTIME end = day;
        end.wHour = 23;
        end.wMinute = end.wSecond = 59;
        auto records = std::make_unique<CAmporaDataCollection>();
        records->AddAmporaData(start, end, day.wDay);
        return records;
    }

    std::function<CString(DWORD, const SYSTEMTIME&)> url = [](DWORD, const SYSTEMTIME&) {
        return CString(L"http://127.0.0.1:8470/report");
    };
    std::function<Records(DWORD, const CString&, DWORD)> analyze = [this](DWORD, const CString&, DWORD) {
        return WholeDay(days.back());
    };
    std::function<void(DWORD)> out = [](DWORD) {};
    std::vector<SYSTEMTIME> days;
    std::vector<Written> written;
};

SYSTEMTIME At(WORD year, WORD month, WORD day, WORD hour, WORD minute = 0, WORD second = 0)
{
    SYSTEMTIME time{};
    time.wYear = year;
    time.wMonth = month;
    time.wDay = day;
    time.wHour = hour;
    time.wMinute = minute;
    time.wSecond = second;
    return time;
}

class AmporaUpdater : public testing::Test {
protected:
    AmporaUpdater()
    {
        g_dwLogLevel = kTraceErr | kTraceWar | kTraceTra | kTraceScope;
        m_machine.SetLocalClock(At(2012, 7, 2, 18));
        m_machine.SetHttpHandler([](const HttpExchange&) { return HttpAnswer{200, "report"}; });
    }
    ~AmporaUpdater() override { g_dwLogLevel = 0; }

    // One site, one whole pass on the test's own thread.
    BOOL UpdateSite(CAmporaSiteConfig& site)
    {
        CAmporaSiteConfig* const sites[] = {&site, nullptr};
        return m_updater.Update(sites);
    }
    void UpdateOne(CAmporaSiteConfig* site)
    {
        CAmporaHttpClient client;
        m_machine.ClearDebugLines();
        m_updater.UpdateOnePowerCompany(&client, site, At(2012, 7, 2, 6), At(2012, 7, 3, 6));
    }
    void PutInterval(DWORD interval, DWORD minimum, DWORD maximum)
    {
        m_machine.PutDword(Hive::kMachine, kMainKey, L"Interval", interval);
        m_machine.PutDword(Hive::kMachine, kMainKey, L"IntervalMin", minimum);
        m_machine.PutDword(Hive::kMachine, kMainKey, L"IntervalMax", maximum);
    }
    void EnableUpdates() { m_machine.PutDword(Hive::kMachine, kMainKey, L"Enable", 1); }

    platform::sim::CMachine m_machine;
    TestUpdater m_updater;
};

// --- Update ---------------------------------------------------------------------------------------------------------

TEST_F(AmporaUpdater, SlotsAreInOrder)
{
    EXPECT_EQ(SlotOf(&CAmporaUpdater::Start), 1);
    EXPECT_EQ(SlotOf(&CAmporaUpdater::Stop), 2);
    EXPECT_EQ(SlotOf(&CAmporaUpdater::ThreadProc), 3);
    EXPECT_EQ(SlotOf(&CAmporaUpdater::SetExit), 4);
    EXPECT_EQ(SlotOf(&CAmporaUpdater::Update), 5);
    EXPECT_EQ(SlotOf(&CAmporaUpdater::SetIntervalUpdate), 6);
    EXPECT_EQ(SlotOf(&CAmporaUpdater::UpdateOnePowerCompany), 7);
}

TEST_F(AmporaUpdater, PassHandlesEverySiteOfTheListInOrder)
{
    FakeSite first;
    FakeSite second;
    std::vector<int> order;
    first.out = [&](DWORD) { order.push_back(1); };
    second.out = [&](DWORD) { order.push_back(2); };
    CAmporaSiteConfig* const sites[] = {&first, &second, nullptr};
    EXPECT_TRUE(m_updater.Update(sites));
    EXPECT_THAT(order, ElementsAre(1, 1, 1, 1, 1, 2, 2, 2, 2, 2));
}

TEST_F(AmporaUpdater, PassVisitsTheDaysOfNowMinusAndPlus12Hours)
{
    FakeSite site;
    UpdateSite(site);
    ASSERT_THAT(site.days, SizeIs(10));
    for (std::size_t i = 0; i < site.days.size(); i += 2) {
        EXPECT_EQ(site.days[i].wDay, 2);
        EXPECT_EQ(site.days[i].wHour, 6);
        EXPECT_EQ(site.days[i].wMilliseconds, 0);
        EXPECT_EQ(site.days[i].wDayOfWeek, 1);
        EXPECT_EQ(site.days[i + 1].wDay, 3);
    }
}

TEST_F(AmporaUpdater, PassJustBeforeNoonVisitsYesterdayAndToday)
{
    m_machine.SetLocalClock(At(2012, 7, 2, 11, 59));
    FakeSite site;
    UpdateSite(site);
    ASSERT_THAT(site.days, SizeIs(10));
    EXPECT_EQ(site.days[0].wDay, 1);
    EXPECT_EQ(site.days[1].wDay, 2);
}

TEST_F(AmporaUpdater, PassOverTheTurnOfTheYearVisitsBothYears)
{
    m_machine.SetLocalClock(At(2012, 12, 31, 13));
    FakeSite site;
    UpdateSite(site);
    ASSERT_THAT(site.days, SizeIs(10));
    EXPECT_EQ(site.days[0].wYear, 2012);
    EXPECT_EQ(site.days[1].wYear, 2013);
    EXPECT_EQ(site.days[1].wMonth, 1);
    EXPECT_EQ(site.days[1].wDay, 1);
}

TEST_F(AmporaUpdater, PassOfABrokenClockTouchesNothingAndSucceeds)
{
    m_machine.FailCall(Call::kLocalCalendarToTime, 1, 87);
    FakeSite site;
    EXPECT_TRUE(UpdateSite(site));
    EXPECT_THAT(site.days, IsEmpty());
    EXPECT_THAT(TraceMessages(), IsEmpty());
}

TEST_F(AmporaUpdater, ExitBetweenTwoCompaniesEndsThePass)
{
    FakeSite first;
    FakeSite second;
    first.out = [this](DWORD dataType) {
        if (dataType == kPeakDemand) {
            m_updater.SetExit();
        }
    };
    CAmporaSiteConfig* const sites[] = {&first, &second, nullptr};
    EXPECT_FALSE(m_updater.Update(sites));
    EXPECT_THAT(second.days, IsEmpty());
    EXPECT_EQ(CountTrace("TRA", kUpdateName, "Exit Flag ON"), 1);
}

// --- Update: the mutex ----------------------------------------------------------------------------------------------

// Runs passes on the updater's own worker, where the mutex belongs to the thread that ends.
class RunningUpdater : public TestUpdater {
public:
    void ThreadProc() override
    {
        CAmporaSiteConfig* const sites[] = {&site, nullptr};
        for (int i = 0; i < passes; ++i) {
            results.push_back(Update(sites));
        }
    }
    FakeSite site;
    int passes = 1;
    std::vector<BOOL> results;
};

// Stops a worker that waits for the other copy's pass: it ends at once, without a download. Ends the other pass, too.
void ExpectStopEndsTheWait(RunningUpdater& updater)
{
    auto& machine = platform::sim::CMachine::Current();
    updater.Stop(1000);
    EXPECT_THAT(updater.results, ElementsAre(FALSE));
    EXPECT_THAT(updater.site.days, IsEmpty());
    EXPECT_EQ(CountTrace("TRA", kUpdateName, "Exit Signal."), 1);
    EXPECT_EQ(machine.ElapsedMs(), 0);
    machine.OtherProcessReleasesMutex(kUpdateMutexName);
}

TEST_F(AmporaUpdater, PassOwnsTheMutexFromItsStartToItsEnd)
{
    RunningUpdater updater;
    std::vector<bool> owned;
    updater.site.out = [&](DWORD) { owned.push_back(m_machine.IsMutexOwned(kUpdateMutexName)); };
    ASSERT_TRUE(updater.Start());
    m_machine.RunUntilIdle();
    EXPECT_THAT(owned, ElementsAre(true, true, true, true, true));
    EXPECT_FALSE(m_machine.IsMutexOwned(kUpdateMutexName));
    updater.Stop(1000);
}

TEST_F(AmporaUpdater, PassWaitsForAnotherSessionsPass)
{
    RunningUpdater updater;
    m_machine.OtherProcessAcquiresMutex(kUpdateMutexName);
    ASSERT_TRUE(updater.Start());
    m_machine.RunFor(3600000);
    EXPECT_THAT(updater.site.days, IsEmpty());
    m_machine.OtherProcessReleasesMutex(kUpdateMutexName);
    m_machine.RunUntilIdle();
    EXPECT_THAT(updater.site.days, SizeIs(10));
    EXPECT_THAT(updater.results, ElementsAre(TRUE));
    updater.Stop(1000);
}

TEST_F(AmporaUpdater, ManualTriggerWhileWaitingForAnotherPassOnlyMakesItLookAgain)
{
    RunningUpdater updater;
    m_machine.OtherProcessAcquiresMutex(kUpdateMutexName);
    ASSERT_TRUE(updater.Start());
    m_machine.RunUntilIdle();
    EXPECT_TRUE(m_machine.OtherProcessSetsEvent(kUpdateEventName));
    m_machine.RunUntilIdle();
    EXPECT_THAT(updater.site.days, IsEmpty());
    m_machine.OtherProcessReleasesMutex(kUpdateMutexName);
    m_machine.RunUntilIdle();
    EXPECT_THAT(updater.results, ElementsAre(TRUE));
    updater.Stop(1000);
}

TEST_F(AmporaUpdater, ExitWhileWaitingForAnotherPassEndsItWithoutADownload)
{
    RunningUpdater updater;
    m_machine.OtherProcessAcquiresMutex(kUpdateMutexName);
    ASSERT_TRUE(updater.Start());
    m_machine.RunUntilIdle();
    ExpectStopEndsTheWait(updater);
}

TEST_F(AmporaUpdater, MutexThatComesTogetherWithTheExitIsAbandonedWithTheThread)
{
    RunningUpdater updater;
    m_machine.OtherProcessAcquiresMutex(kUpdateMutexName);
    ASSERT_TRUE(updater.Start());
    m_machine.RunUntilIdle();
    updater.SetExit();
    m_machine.OtherProcessReleasesMutex(kUpdateMutexName);
    m_machine.RunUntilIdle();
    EXPECT_THAT(updater.results, ElementsAre(FALSE));
    EXPECT_EQ(CountTrace("TRA", kUpdateName, "Exit Signal."), 1);
    // The next to wait is told that it was abandoned.
    const platform::WaitHandle mutex = platform::CreateNamedMutex(kUpdateMutexName, FALSE, nullptr);
    EXPECT_EQ(platform::WaitForOne(mutex, 0, FALSE), WAIT_ABANDONED_0);
    platform::ReleaseOwnedMutex(mutex);
    updater.Stop(1000);
}

// Symptom: after a pass behind a killed copy, no copy on the machine made a pass any more.
TEST_F(AmporaUpdater, AbandonedMutexIsReleasedAsOftenAsItWasAcquired)
{
    RunningUpdater updater;
    updater.passes = 2;
    m_machine.OtherProcessAcquiresMutex(kUpdateMutexName);
    ASSERT_TRUE(updater.Start());
    m_machine.RunUntilIdle();
    m_machine.OtherProcessAbandonsMutex(kUpdateMutexName);
    m_machine.RunUntilIdle();
    EXPECT_THAT(updater.results, ElementsAre(TRUE, TRUE));
    EXPECT_EQ(m_machine.CallCount(Call::kReleaseOwnedMutex), 3U);
    EXPECT_FALSE(m_machine.IsMutexOwned(kUpdateMutexName));
    // Nobody finds it abandoned either.
    const platform::WaitHandle mutex = platform::CreateNamedMutex(kUpdateMutexName, FALSE, nullptr);
    EXPECT_EQ(platform::WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0);
    platform::ReleaseOwnedMutex(mutex);
    updater.Stop(1000);
}

TEST_F(AmporaUpdater, FailedWaitIsTriedAgainAfterARest)
{
    RunningUpdater updater;
    m_machine.FailCall(Call::kWaitForAny, 1, 6);
    m_machine.FailCall(Call::kWaitForAny, 2, 6);
    ASSERT_TRUE(updater.Start());
    m_machine.RunFor(2000);
    EXPECT_THAT(updater.results, ElementsAre(TRUE));
    EXPECT_EQ(m_machine.CallCount(Call::kWaitForAny), 3U);
    EXPECT_EQ(m_machine.ElapsedMs(), 2000);
    updater.Stop(1000);
}

TEST_F(AmporaUpdater, ExitDuringTheRestAfterAFailedWaitEndsThePass)
{
    // Symptom: the worker used Stop's signal up in its rest, went on waiting for the other copy's pass and was given
    // up.
    RunningUpdater updater;
    m_machine.OtherProcessAcquiresMutex(kUpdateMutexName);
    m_machine.FailCall(Call::kWaitForAny, 1, 6);
    ASSERT_TRUE(updater.Start());
    m_machine.RunUntilIdle();
    ExpectStopEndsTheWait(updater);
}

TEST_F(AmporaUpdater, ExitBeforeAFailedWaitEndsThePassWithoutARest)
{
    RunningUpdater updater;
    m_machine.FailCall(Call::kWaitForAny, 1, 6);
    ASSERT_TRUE(updater.Start());
    updater.SetExit();
    m_machine.RunUntilIdle();
    EXPECT_THAT(updater.results, ElementsAre(FALSE));
    EXPECT_EQ(m_machine.CallCount(Call::kWaitForAny), 1U);
    EXPECT_EQ(m_machine.ElapsedMs(), 0);
    updater.Stop(1000);
}

TEST_F(AmporaUpdater, PassWithoutMutexGoesOnWithoutWaiting)
{
    // Update before Start: there is no mutex yet.
    FakeSite site;
    EXPECT_TRUE(UpdateSite(site));
    EXPECT_EQ(m_machine.CallCount(Call::kWaitForAny), 0U);
    EXPECT_EQ(m_machine.CallCount(Call::kReleaseOwnedMutex), 0U);
    EXPECT_THAT(site.written, SizeIs(5));
}

TEST_F(AmporaUpdater, MutexIsReleasedAfterAPassOfABrokenClock)
{
    RunningUpdater updater;
    m_machine.FailCall(Call::kLocalCalendarToTime, 1, 87);
    ASSERT_TRUE(updater.Start());
    m_machine.RunUntilIdle();
    EXPECT_THAT(updater.results, ElementsAre(TRUE));
    EXPECT_FALSE(m_machine.IsMutexOwned(kUpdateMutexName));
    EXPECT_EQ(m_machine.CallCount(Call::kReleaseOwnedMutex), 1U);
    updater.Stop(1000);
}

// --- UpdateOnePowerCompany ------------------------------------------------------------------------------------------

TEST_F(AmporaUpdater, NullSiteIsRefused)
{
    UpdateOne(nullptr);
    EXPECT_THAT(TraceMessages(), ::testing::Contains(TraceLine{"ERR", kUpdateOneName, "Invalid Parameter"}));
    EXPECT_THAT(m_machine.HttpExchanges(), IsEmpty());
}

TEST_F(AmporaUpdater, KindsComeInOrderAndOnlyUsageIsTrimmed)
{
    FakeSite site;
    // A record of the 1st lies before the window, one of each visited day inside.
    site.analyze = [&](DWORD, const CString&, DWORD) {
        auto records = FakeSite::WholeDay(At(2012, 7, 1, 0));
        records->AddAmporaData(FakeSite::WholeDay(site.days.back()).get());
        return records;
    };
    UpdateOne(&site);
    ASSERT_THAT(site.written, SizeIs(5));
    const DWORD kinds[] = {1, 2, 4, 8, 16};
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(site.written[i].dataType, kinds[i]);
        EXPECT_THAT(site.written[i].records, SizeIs(i < 3 ? 2 : 4));
    }
    EXPECT_EQ(CountTrace("TRA", "CAmporaDataCollection::AdjustData", "Out of Range. Remove Item"), 6);
}

TEST_F(AmporaUpdater, PassTrimsUsageToTwelveHoursOnEitherSide)
{
    FakeSite site;
    bool firstDay = false;
    site.analyze = [&](DWORD, const CString&, DWORD) -> FakeSite::Records {
        firstDay = !firstDay;
        if (!firstDay) {
            return nullptr;
        }
        auto records = std::make_unique<CAmporaDataCollection>();
        records->AddAmporaData(At(2012, 7, 2, 5), At(2012, 7, 2, 5, 59, 59), 1);
        records->AddAmporaData(At(2012, 7, 2, 5), At(2012, 7, 2, 6), 2);
        records->AddAmporaData(At(2012, 7, 3, 6), At(2012, 7, 3, 7), 3);
        records->AddAmporaData(At(2012, 7, 3, 6, 0, 1), At(2012, 7, 3, 7), 4);
        return records;
    };
    m_machine.SetLocalClock(At(2012, 7, 2, 18));
    EXPECT_TRUE(UpdateSite(site));
    const std::vector<ULONGLONG> inside = {2, 3};
    const std::vector<ULONGLONG> all = {1, 2, 3, 4};
    std::map<DWORD, std::vector<ULONGLONG>> values;
    for (const Written& written : site.written) {
        for (const _AmporaOneData& record : written.records) {
            values[written.dataType].push_back(record.ullValue);
        }
    }
    EXPECT_THAT(values,
                ElementsAre(Pair(1U, inside), Pair(2U, inside), Pair(4U, inside), Pair(8U, all), Pair(16U, all)));
    EXPECT_EQ(CountTrace("TRA", "CAmporaDataCollection::AdjustData", "Out of Range. Remove Item"), 6);
}

TEST_F(AmporaUpdater, DaysAreMergedInOrderAndWrittenOnceWithTheClockOfTheMoment)
{
    FakeSite site;
    m_machine.SetHttpHandler([](const HttpExchange&) {
        HttpAnswer answer{200, "report"};
        answer.latencyMs = 1000;
        return answer;
    });
    UpdateOne(&site);
    ASSERT_THAT(site.written, SizeIs(5));
    ASSERT_THAT(site.written[0].records, SizeIs(2));
    EXPECT_EQ(site.written[0].records[0].ullValue, 2U);
    EXPECT_EQ(site.written[0].records[1].ullValue, 3U);
    EXPECT_EQ(site.written[0].writeTime.wSecond, 2);
    EXPECT_EQ(site.written[4].writeTime.wSecond, 10);
}

TEST_F(AmporaUpdater, EmptyUrlSkipsTheDay)
{
    FakeSite site;
    site.url = [](DWORD, const SYSTEMTIME&) { return CString(); };
    UpdateOne(&site);
    EXPECT_EQ(CountTrace("TRA", kUpdateOneName, "Get URL Empty. Skip"), 10);
    EXPECT_THAT(site.written, IsEmpty());
    EXPECT_THAT(m_machine.HttpExchanges(), IsEmpty());
}

TEST_F(AmporaUpdater, FailedDownloadOfTheFirstDayLeavesTheSecond)
{
    FakeSite site;
    m_machine.FailCall(Call::kSendHttpRequest, 1, 12029);
    UpdateOne(&site);
    EXPECT_EQ(CountTrace("ERR", kUpdateOneName, "Get Data Fail"), 1);
    ASSERT_THAT(site.written, SizeIs(5));
    ASSERT_THAT(site.written[0].records, SizeIs(1));
    EXPECT_EQ(site.written[0].records[0].ullValue, 3U);
}

TEST_F(AmporaUpdater, FailedDownloadsOfBothDaysWriteNothingOfThatKind)
{
    FakeSite site;
    m_machine.FailCall(Call::kSendHttpRequest, 1, 12029);
    m_machine.FailCall(Call::kSendHttpRequest, 2, 12029);
    UpdateOne(&site);
    EXPECT_EQ(CountTrace("ERR", kUpdateOneName, "Get Data Fail"), 2);
    ASSERT_THAT(site.written, SizeIs(4));
    EXPECT_EQ(site.written[0].dataType, 2U);
}

TEST_F(AmporaUpdater, FailedAnalysisIsTracedAndTheOtherDayWritten)
{
    FakeSite site;
    int calls = 0;
    site.analyze = [&](DWORD, const CString&, DWORD) {
        return ++calls == 2 ? nullptr : FakeSite::WholeDay(site.days.back());
    };
    UpdateOne(&site);
    EXPECT_EQ(CountTrace("ERR", kUpdateOneName, "Analyze Error"), 1);
    ASSERT_THAT(site.written, SizeIs(5));
    ASSERT_THAT(site.written[0].records, SizeIs(1));
    EXPECT_EQ(site.written[0].records[0].ullValue, 2U);
}

TEST_F(AmporaUpdater, BodyAndStatusReachTheAnalysis)
{
    FakeSite site;
    m_machine.SetHttpHandler([](const HttpExchange&) { return HttpAnswer{503, "unread"}; });
    std::vector<std::pair<CString, DWORD>> seen;
    site.analyze = [&](DWORD, const CString& body, DWORD status) {
        seen.emplace_back(body, status);
        return nullptr;
    };
    UpdateOne(&site);
    ASSERT_THAT(seen, SizeIs(10));
    EXPECT_EQ(seen[0].first, L"");
    EXPECT_EQ(seen[0].second, 503U);
}

TEST_F(AmporaUpdater, EachDownloadStartsWithAnEmptyBody)
{
    FakeSite site;
    std::vector<CString> bodies;
    site.analyze = [&](DWORD, const CString& body, DWORD) {
        bodies.push_back(body);
        return nullptr;
    };
    UpdateOne(&site);
    EXPECT_THAT(bodies, ::testing::Each(CString(L"report")));
}

TEST_F(AmporaUpdater, ExitSeenAfterADownloadIsTracedTwiceAndNothingWritten)
{
    FakeSite site;
    m_machine.SetHttpHandler([this](const HttpExchange&) {
        m_updater.SetExit();
        return HttpAnswer{200, "report"};
    });
    UpdateOne(&site);
    EXPECT_EQ(CountTrace("TRA", kUpdateOneName, "Exit Flag on"), 2);
    EXPECT_THAT(site.written, IsEmpty());
    EXPECT_THAT(m_machine.HttpExchanges(), SizeIs(1));
}

TEST_F(AmporaUpdater, ExitSeenAfterTheDaysIsTracedOnceAndTheKindNotWritten)
{
    FakeSite site;
    site.analyze = [&](DWORD, const CString&, DWORD) {
        m_updater.SetExit();
        return FakeSite::WholeDay(site.days.back());
    };
    UpdateOne(&site);
    EXPECT_EQ(CountTrace("TRA", kUpdateOneName, "Exit Flag on"), 1);
    EXPECT_THAT(site.written, IsEmpty());
}

TEST_F(AmporaUpdater, ExitSeenBeforeAKindStopsSilently)
{
    FakeSite site;
    site.out = [this](DWORD) { m_updater.SetExit(); };
    UpdateOne(&site);
    EXPECT_THAT(site.written, SizeIs(1));
    EXPECT_EQ(CountTrace("TRA", kUpdateOneName, "Exit Flag on"), 0);
}

TEST_F(AmporaUpdater, ExceptionOfOneKindLeavesTheOthers)
{
    FakeSite site;
    site.out = [](DWORD dataType) {
        if (dataType == kActualUsage) {
            throw std::runtime_error("disk fails");
        }
    };
    UpdateOne(&site);
    EXPECT_THAT(site.written, SizeIs(5));
    EXPECT_TRUE(testing_support::TraceScopesBalance(testing_support::TraceLines()));
}

TEST_F(AmporaUpdater, ExceptionOfPreparingARequestLeavesTheOtherKinds)
{
    FakeSite site;
    m_machine.FailCall(Call::kOpenHttpRequestThrows, 1, 12005);
    UpdateOne(&site);
    ASSERT_THAT(site.written, SizeIs(4));
    EXPECT_EQ(site.written[0].dataType, 2U);
}

TEST_F(AmporaUpdater, EmptyCollectionIsWritten)
{
    FakeSite site;
    site.analyze = [](DWORD, const CString&, DWORD) { return std::make_unique<CAmporaDataCollection>(); };
    UpdateOne(&site);
    ASSERT_THAT(site.written, SizeIs(5));
    EXPECT_THAT(site.written[0].records, IsEmpty());
}

// --- SetIntervalUpdate ----------------------------------------------------------------------------------------------

TEST_F(AmporaUpdater, EqualZeroBoundsGiveExactlyTheInterval)
{
    PutInterval(45, 0, 0);
    CWaitTableTimer timer;
    ASSERT_TRUE(timer.Create());
    m_machine.ClearDebugLines();
    EXPECT_TRUE(m_updater.SetIntervalUpdate(&timer));
    EXPECT_THAT(TraceMessages(), ElementsAre(TraceLine{"TRA", kIntervalName, "Interval:45min, Rand:0min - 0min"},
                                             TraceLine{"TRA", kIntervalName, "Set Interval:45min"},
                                             TraceLine{"TRA", "CWaitTableTimer::Start", "Timer Started"}));
    const platform::WaitHandle never = platform::CreateNamedEvent(L"NobodySetsIt", nullptr);
    EXPECT_EQ(platform::WaitForOne(never, INFINITE, TRUE), WAIT_IO_COMPLETION);
    EXPECT_EQ(m_machine.ElapsedMs(), 45 * 60000);
}

TEST_F(AmporaUpdater, DefaultsGive15To44Minutes)
{
    CWaitTableTimer timer;
    ASSERT_TRUE(timer.Create());
    const platform::WaitHandle never = platform::CreateNamedEvent(L"NobodySetsIt", nullptr);
    for (int i = 0; i < 200; ++i) {
        const std::int64_t before = m_machine.ElapsedMs();
        ASSERT_TRUE(m_updater.SetIntervalUpdate(&timer));
        ASSERT_EQ(platform::WaitForOne(never, INFINITE, TRUE), WAIT_IO_COMPLETION);
        const std::int64_t minutes = (m_machine.ElapsedMs() - before) / 60000;
        ASSERT_GE(minutes, 15);
        ASSERT_LE(minutes, 44);
    }
    EXPECT_EQ(CountTrace("TRA", kIntervalName, "Interval:30min, Rand:-15min - 15min"), 200);
}

TEST_F(AmporaUpdater, ReversedBoundsAreSwapped)
{
    PutInterval(30, 10, static_cast<DWORD>(-10));
    CWaitTableTimer timer;
    ASSERT_TRUE(timer.Create());
    ASSERT_TRUE(m_updater.SetIntervalUpdate(&timer));
    EXPECT_EQ(CountTrace("TRA", kIntervalName, "Interval:30min, Rand:10min - -10min"), 1);
    const platform::WaitHandle never = platform::CreateNamedEvent(L"NobodySetsIt", nullptr);
    ASSERT_EQ(platform::WaitForOne(never, INFINITE, TRUE), WAIT_IO_COMPLETION);
    EXPECT_GE(m_machine.ElapsedMs(), 20 * 60000);
    EXPECT_LT(m_machine.ElapsedMs(), 40 * 60000);
}

TEST_F(AmporaUpdater, FailedTimerIsReported)
{
    CWaitTableTimer timer; // never created
    EXPECT_FALSE(m_updater.SetIntervalUpdate(&timer));
    EXPECT_EQ(CountTrace("ERR", "CWaitTableTimer::Start", "Timer Start Fail.(0x00000006)"), 1);
}

TEST_F(AmporaUpdater, LargestSettingsDoNotOverflow)
{
    PutInterval(0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF);
    CWaitTableTimer timer;
    ASSERT_TRUE(timer.Create());
    EXPECT_TRUE(m_updater.SetIntervalUpdate(&timer));
    EXPECT_EQ(CountTrace("TRA", kIntervalName, "Set Interval:4294967294min"), 1);
}

// --- Start, Stop, ThreadProc ----------------------------------------------------------------------------------------

TEST_F(AmporaUpdater, StartCreatesTheNamedObjectsForEverybody)
{
    ASSERT_TRUE(m_updater.Start());
    EXPECT_TRUE(m_machine.NamedObjectHasNullDacl(kUpdateMutexName));
    EXPECT_TRUE(m_machine.NamedObjectHasNullDacl(kUpdateEventName));
    m_updater.Stop(1000);
    EXPECT_FALSE(m_machine.NamedObjectExists(kUpdateMutexName));
    EXPECT_FALSE(m_machine.NamedObjectExists(kUpdateEventName));
}

TEST_F(AmporaUpdater, SecondStartSaysSoAndReturnsTrue)
{
    ASSERT_TRUE(m_updater.Start());
    m_machine.ClearDebugLines();
    EXPECT_TRUE(m_updater.Start());
    EXPECT_EQ(CountTrace("TRA", "CAmporaUpdater::Start", "Already Started"), 1);
    EXPECT_EQ(m_machine.CallCount(Call::kStartThread), 1U);
    m_updater.Stop(1000);
}

// Each step of Start that can fail, and the line that tells it.
struct StartFault {
    Call call;
    const char* message;
};

class AmporaUpdaterStart : public AmporaUpdater, public testing::WithParamInterface<StartFault> {};

TEST_P(AmporaUpdaterStart, FailureIsTracedAndLeavesNothingOpen)
{
    m_machine.FailCall(GetParam().call, 1, 5);
    EXPECT_FALSE(m_updater.Start());
    EXPECT_EQ(CountTrace("ERR", "CAmporaUpdater::Start", GetParam().message), 1);
    EXPECT_FALSE(m_machine.NamedObjectExists(kUpdateMutexName));
    EXPECT_FALSE(m_machine.NamedObjectExists(kUpdateEventName));
    EXPECT_TRUE(m_updater.Start());
    m_updater.Stop(1000);
}

INSTANTIATE_TEST_SUITE_P(EachStep, AmporaUpdaterStart,
                         testing::Values(StartFault{Call::kInitializeDescriptor, "InitializeSecurityDescriptor Fail."},
                                         StartFault{Call::kSetNullDacl, "SetSecurityDescriptorDacl Fail."},
                                         StartFault{Call::kCreateNamedMutex, "CreateMutex Fail."},
                                         StartFault{Call::kCreateNamedEvent, "CreateEvent Fail."},
                                         StartFault{Call::kStartThread, "Start Fail."}));

TEST_F(AmporaUpdater, InitialPassRunsAtTheFirstStartOnly)
{
    EnableUpdates();
    ASSERT_TRUE(m_updater.Start());
    m_machine.RunUntilIdle();
    m_updater.Stop(1000);
    EXPECT_THAT(m_machine.HttpExchanges(), SizeIs(42));
    EXPECT_EQ(CountTrace("TRA", kThreadName, "Update Flag ON"), 1);
    EXPECT_EQ(CountTrace("TRA", kThreadName, "Updated"), 1);
    ASSERT_TRUE(m_updater.Start());
    m_machine.RunUntilIdle();
    m_updater.Stop(1000);
    EXPECT_THAT(m_machine.HttpExchanges(), SizeIs(42));
}

TEST_F(AmporaUpdater, DefaultPassAsksTheCompaniesInOrderOverOneConnection)
{
    EnableUpdates();
    ASSERT_TRUE(m_updater.Start());
    m_machine.RunUntilIdle();
    m_updater.Stop(1000);
    const std::vector<HttpExchange> exchanges = m_machine.HttpExchanges();
    ASSERT_THAT(exchanges, SizeIs(42));
    std::vector<std::string> companies;
    for (const HttpExchange& exchange : exchanges) {
        EXPECT_EQ(exchange.connection, 1U);
        EXPECT_EQ(exchange.agent, "Ampora Service");
        const std::size_t begin = exchange.target.find('/', 1) + 1;
        const std::string company = exchange.target.substr(begin, exchange.target.find('/', begin) - begin);
        if (companies.empty() || companies.back() != company) {
            companies.push_back(company);
        }
    }
    EXPECT_THAT(companies, ElementsAre("tokyo", "tohoku", "kansai", "chubu", "kyushu"));
    EXPECT_EQ(exchanges[0].target, "/usage/tokyo/instant?date=2012-07-02&output=xml");
    EXPECT_EQ(exchanges[1].target, "/usage/tokyo/instant?date=2012-07-03&output=xml");
    EXPECT_EQ(exchanges[41].target, "/peak/kyushu/demand?date=2012-07-03&output=xml");
}

TEST_F(AmporaUpdater, NoInitialPassWhileUpdatingIsOff)
{
    ASSERT_TRUE(m_updater.Start());
    m_machine.RunUntilIdle();
    EXPECT_THAT(m_machine.HttpExchanges(), IsEmpty());
    m_updater.Stop(1000);
    EXPECT_EQ(CountTrace("TRA", kThreadName, "Update Flag ON"), 0);
    // Switched on later, a second start makes up for nothing.
    EnableUpdates();
    ASSERT_TRUE(m_updater.Start());
    m_machine.RunUntilIdle();
    EXPECT_THAT(m_machine.HttpExchanges(), IsEmpty());
    m_updater.Stop(1000);
}

TEST_F(AmporaUpdater, StopDuringTheInitialPassIsAFailedUpdate)
{
    EnableUpdates();
    m_machine.SetHttpHandler([this](const HttpExchange&) {
        m_updater.SetExit();
        return HttpAnswer{200, "report"};
    });
    ASSERT_TRUE(m_updater.Start());
    m_machine.RunUntilIdle();
    EXPECT_EQ(CountTrace("WAR", kThreadName, "Update Fail."), 1);
    EXPECT_EQ(CountTrace("TRA", kThreadName, "Exit..."), 1);
    m_updater.Stop(1000);
}

TEST_F(AmporaUpdater, StopBeforeTheWorkerRunsEndsItAtOnce)
{
    EnableUpdates();
    ASSERT_TRUE(m_updater.Start());
    m_updater.Stop(1000);
    EXPECT_EQ(CountTrace("TRA", kThreadName, "Exit..."), 1);
    EXPECT_THAT(m_machine.HttpExchanges(), IsEmpty());
}

TEST_F(AmporaUpdater, StopInTheMiddleOfADownloadGivesUpAndTheWorkerEndsByItself)
{
    // The worker is inside a download of 20 s when it is stopped with 100 ms, the updater goes away, and the worker
    // finds its exit request after the download.
    EnableUpdates();
    m_machine.SetHttpHandler([](const HttpExchange&) {
        HttpAnswer answer{200, "report"};
        answer.latencyMs = 20000;
        return answer;
    });
    auto updater = std::make_shared<CAmporaUpdater>();
    const std::weak_ptr<CAmporaUpdater> watch = updater;
    ASSERT_TRUE(updater->Start());
    m_machine.RunFor(1000);
    updater->Stop(100);
    updater.reset();
    EXPECT_EQ(m_machine.ElapsedMs(), 1100);
    // The mutex lives on with the pass: no other copy's pass may begin.
    EXPECT_TRUE(m_machine.IsMutexOwned(kUpdateMutexName));
    m_machine.RunFor(30000);
    EXPECT_TRUE(watch.expired());
    EXPECT_FALSE(m_machine.NamedObjectExists(kUpdateMutexName));
    EXPECT_THAT(m_machine.HttpExchanges(), SizeIs(1));
    EXPECT_EQ(CountTrace("TRA", kUpdateOneName, "Exit Flag on"), 2);
}

TEST_F(AmporaUpdater, RestartDuringAnOldDownloadWaitsForTheOldPassToEnd)
{
    EnableUpdates();
    int running = 0;
    int most = 0;
    m_machine.SetHttpHandler([&](const HttpExchange&) {
        most = std::max(most, ++running);
        platform::WaitForOne(platform::CreateNamedEvent(L"NobodySetsIt", nullptr), 20000, FALSE);
        --running;
        return HttpAnswer{404, ""};
    });
    const auto updater = std::make_shared<CAmporaUpdater>();
    ASSERT_TRUE(updater->Start());
    m_machine.RunFor(1000);
    updater->Stop(100);
    ASSERT_TRUE(updater->Start());
    m_machine.RunFor(3600000);
    EXPECT_EQ(most, 1);
    updater->Stop(100);
    m_machine.RunFor(20000);
}

TEST_F(AmporaUpdater, ConstructionAndDestructionAreTracedFromTheBaseOutAndBack)
{
    m_machine.ClearDebugLines();
    {
        const CAmporaUpdater updater;
    }
    std::vector<std::string> entered;
    for (const TraceLine& line : testing_support::TraceLines()) {
        if (line.message == "Enter") {
            entered.push_back(line.function);
        }
    }
    EXPECT_THAT(entered, ElementsAre("CAmporaThread::CAmporaThread", "CAmporaHttpClient::CAmporaHttpClient",
                                     "CAmporaUpdater::CAmporaUpdater", "CAmporaUpdater::~CAmporaUpdater",
                                     "CAmporaHttpClient::~CAmporaHttpClient", "CAmporaThread::~CAmporaThread"));
}

TEST_F(AmporaUpdater, SitesAreConstructedInOrderAndDestroyedInReverse)
{
    ASSERT_TRUE(m_updater.Start());
    m_machine.RunUntilIdle();
    m_updater.Stop(1000);
    std::vector<std::string> order;
    for (const TraceLine& line : testing_support::TraceLines()) {
        if (line.message == "Enter" && line.function.find("PowerCompany::") != std::string::npos) {
            order.push_back(line.function.substr(line.function.find("::") + 2));
        }
    }
    EXPECT_THAT(order,
                ElementsAre("CAmporaTokyoPowerCompany", "CAmporaTohokuPowerCompany", "CAmporaKansaiPowerCompany",
                            "CAmporaChubuPowerCompany", "CAmporaKyushuPowerCompany", "~CAmporaKyushuPowerCompany",
                            "~CAmporaChubuPowerCompany", "~CAmporaKansaiPowerCompany", "~CAmporaTohokuPowerCompany",
                            "~CAmporaTokyoPowerCompany"));
}

TEST_F(AmporaUpdater, EveryScopeOfThePassIsLeft)
{
    FakeSite site;
    m_machine.ClearDebugLines();
    UpdateSite(site);
    EXPECT_TRUE(testing_support::TraceScopesBalance(testing_support::TraceLines()));
    EXPECT_EQ(CountTrace("TRA", kUpdateName, "Enter"), 1);
    EXPECT_EQ(CountTrace("TRA", kUpdateOneName, "Leave"), 1);
}

} // namespace
