#include "engine/AmporaUpdater.h"

#include "engine/WaitTableTimer.h"
#include "format/Catalogue.h"
#include "platform/Clock.h"
#include "testing/CalendarText.h"
#include "testing/FailingMemory.h"
#include "testing/SlotOrder.h"
#include "testing/UpdaterTest.h"

#include <algorithm>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace testing_support;
using platform::sim::Call;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;

constexpr char kUpdateName[] = "CAmporaUpdater::Update";
constexpr char kUpdateOneName[] = "CAmporaUpdater::UpdateOnePowerCompany";
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

class AmporaUpdater : public CUpdaterTest {
protected:
    AmporaUpdater()
    {
        m_machine.SetLocalClock(At(2012, 7, 2, 18));
        m_machine.SetHttpHandler([](const HttpExchange&) { return HttpAnswer{200, "report"}; });
    }

    // One whole pass over the one site, on the test's own thread.
    BOOL UpdateSite()
    {
        CAmporaSiteConfig* const sites[] = {&m_site, nullptr};
        return m_updater.Update(sites);
    }
    void UpdateOne(CAmporaSiteConfig* site)
    {
        CAmporaHttpClient client;
        m_machine.ClearDebugLines();
        m_updater.UpdateOnePowerCompany(&client, site, At(2012, 7, 2, 6), At(2012, 7, 3, 6));
    }

    FakeSite m_site;
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

TEST_F(AmporaUpdater, PassVisitsTheDaysTwelveHoursBeforeAndAfterNow)
{
    const struct {
        SYSTEMTIME now;
        const char* days[2];
    } cases[] = {
        {At(2012, 7, 2, 18), {"2012-07-02(1) 06:00:00.000", "2012-07-03(2) 06:00:00.000"}},
        {At(2012, 7, 2, 11, 59), {"2012-07-01(0) 23:59:00.000", "2012-07-02(1) 23:59:00.000"}},
        {At(2012, 12, 31, 13), {"2012-12-31(1) 01:00:00.000", "2013-01-01(2) 01:00:00.000"}},
    };
    for (const auto& [now, days] : cases) {
        m_machine.SetLocalClock(now);
        m_site.days.clear();
        UpdateSite();
        ASSERT_THAT(m_site.days, SizeIs(10));
        for (std::size_t i = 0; i < m_site.days.size(); ++i) {
            EXPECT_EQ(CalendarText(m_site.days[i]), days[i % 2]);
        }
    }
}

TEST_F(AmporaUpdater, PassWithoutClockDoesNothingAndSucceeds)
{
    m_machine.FailCall(Call::kLocalCalendarToTime, 1, 87);
    EXPECT_TRUE(UpdateSite());
    EXPECT_THAT(m_site.days, IsEmpty());
    EXPECT_THAT(TraceMessages(), IsEmpty());
}

TEST_F(AmporaUpdater, ExitBetweenTwoCompaniesEndsThePass)
{
    FakeSite first;
    FakeSite second;
    first.out = [this](DWORD dataType) {
        if (dataType == catalogue::kPeakDemand) {
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
class RunningUpdater : public CTestUpdater {
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

class UpdaterMutex : public AmporaUpdater {
protected:
    ~UpdaterMutex() override { m_running.Stop(1000); }

    void StartRunning()
    {
        ASSERT_TRUE(m_running.Start());
        m_machine.RunUntilIdle();
    }
    // Starts a worker that waits for the pass of another copy.
    void StartWaiting()
    {
        m_machine.OtherProcessAcquiresMutex(kUpdateMutexName);
        StartRunning();
    }
    // Stops the waiting worker: it ends at once, without a download. Ends the other pass, too.
    void ExpectStopEndsTheWait()
    {
        m_running.Stop(1000);
        EXPECT_THAT(m_running.results, ElementsAre(FALSE));
        EXPECT_THAT(m_running.site.days, IsEmpty());
        EXPECT_EQ(CountTrace("TRA", kUpdateName, "Exit Signal."), 1);
        EXPECT_EQ(m_machine.ElapsedMs(), 0);
        m_machine.OtherProcessReleasesMutex(kUpdateMutexName);
    }
    // What the next one gets that waits for the mutex.
    static DWORD NextWait()
    {
        const platform::WaitHandle mutex = platform::CreateNamedMutex(kUpdateMutexName, FALSE, nullptr);
        const DWORD result = platform::WaitForOne(mutex, 0, FALSE);
        platform::ReleaseOwnedMutex(mutex);
        return result;
    }

    RunningUpdater m_running;
};

TEST_F(UpdaterMutex, PassOwnsTheMutexFromItsStartToItsEnd)
{
    std::vector<bool> owned;
    m_running.site.out = [&](DWORD) { owned.push_back(m_machine.IsMutexOwned(kUpdateMutexName)); };
    StartRunning();
    EXPECT_THAT(owned, ElementsAre(true, true, true, true, true));
    EXPECT_FALSE(m_machine.IsMutexOwned(kUpdateMutexName));
}

TEST_F(UpdaterMutex, PassWaitsForAnotherSessionsPass)
{
    m_machine.OtherProcessAcquiresMutex(kUpdateMutexName);
    ASSERT_TRUE(m_running.Start());
    m_machine.RunFor(3600000);
    EXPECT_THAT(m_running.site.days, IsEmpty());
    m_machine.OtherProcessReleasesMutex(kUpdateMutexName);
    m_machine.RunUntilIdle();
    EXPECT_THAT(m_running.site.days, SizeIs(10));
    EXPECT_THAT(m_running.results, ElementsAre(TRUE));
}

TEST_F(UpdaterMutex, ARequestWhileWaitingChangesNothing)
{
    StartWaiting();
    RequestUpdate();
    EXPECT_THAT(m_running.site.days, IsEmpty());
    m_machine.OtherProcessReleasesMutex(kUpdateMutexName);
    m_machine.RunUntilIdle();
    EXPECT_THAT(m_running.results, ElementsAre(TRUE));
}

TEST_F(UpdaterMutex, ExitEndsTheWaitWithoutADownload)
{
    StartWaiting();
    ExpectStopEndsTheWait();
}

TEST_F(UpdaterMutex, MutexAcquiredDuringExitIsAbandoned)
{
    StartWaiting();
    m_running.SetExit();
    m_machine.OtherProcessReleasesMutex(kUpdateMutexName);
    m_machine.RunUntilIdle();
    EXPECT_THAT(m_running.results, ElementsAre(FALSE));
    EXPECT_EQ(CountTrace("TRA", kUpdateName, "Exit Signal."), 1);
    // The next wait reports that it was abandoned.
    EXPECT_EQ(NextWait(), WAIT_ABANDONED_0);
}

// Symptom: after a pass behind a killed copy, no copy on the machine made a pass any more.
TEST_F(UpdaterMutex, AbandonedMutexIsReleasedAsOftenAsAcquired)
{
    m_running.passes = 2;
    StartWaiting();
    m_machine.OtherProcessAbandonsMutex(kUpdateMutexName);
    m_machine.RunUntilIdle();
    EXPECT_THAT(m_running.results, ElementsAre(TRUE, TRUE));
    EXPECT_EQ(m_machine.CallCount(Call::kReleaseOwnedMutex), 3U);
    EXPECT_FALSE(m_machine.IsMutexOwned(kUpdateMutexName));
    // Nobody finds it abandoned either.
    EXPECT_EQ(NextWait(), WAIT_OBJECT_0);
}

TEST_F(UpdaterMutex, FailedWaitIsRepeatedAfterAPause)
{
    m_machine.FailCall(Call::kWaitForAny, 1, 6);
    m_machine.FailCall(Call::kWaitForAny, 2, 6);
    ASSERT_TRUE(m_running.Start());
    m_machine.RunFor(2000);
    EXPECT_THAT(m_running.results, ElementsAre(TRUE));
    EXPECT_EQ(m_machine.CallCount(Call::kWaitForAny), 3U);
    EXPECT_EQ(m_machine.ElapsedMs(), 2000);
}

TEST_F(UpdaterMutex, APauseThatFailsTooTakesItsTime)
{
    // Symptom: a program none of whose waits succeeded took a whole processor.
    constexpr unsigned kMostCalls = 1000; // so that this test ends in any case
    m_machine.SetFaultPlan([this](Call call) {
        const bool isWait = call == Call::kWaitForAny || call == Call::kWaitForOne;
        return isWait && m_machine.CallCount(call) <= kMostCalls ? std::optional<DWORD>(6) : std::nullopt;
    });
    ASSERT_TRUE(m_running.Start());
    m_machine.RunFor(2500);
    EXPECT_EQ(m_machine.CallCount(Call::kWaitForAny), 3U);
    m_machine.ClearFaults();
    m_machine.RunFor(500);
    EXPECT_THAT(m_running.results, ElementsAre(TRUE));
}

TEST_F(UpdaterMutex, ExitDuringThePauseEndsThePass)
{
    // Symptom: the worker used up Stop's signal in its pause and went on waiting for the other copy's pass.
    m_machine.OtherProcessAcquiresMutex(kUpdateMutexName);
    m_machine.FailCall(Call::kWaitForAny, 1, 6);
    StartRunning();
    ExpectStopEndsTheWait();
}

TEST_F(UpdaterMutex, ExitBeforeAFailedWaitSkipsThePause)
{
    m_machine.FailCall(Call::kWaitForAny, 1, 6);
    ASSERT_TRUE(m_running.Start());
    m_running.SetExit();
    m_machine.RunUntilIdle();
    EXPECT_THAT(m_running.results, ElementsAre(FALSE));
    EXPECT_EQ(m_machine.CallCount(Call::kWaitForAny), 1U);
    EXPECT_EQ(m_machine.ElapsedMs(), 0);
}

TEST_F(UpdaterMutex, AMissedStopEndsTheWaitAndThePause)
{
    // Symptom: a worker that missed its Stop while it waited for another copy's pass took the next worker's requests.
    for (const bool pauses : {false, true}) {
        m_machine.OtherProcessAcquiresMutex(kUpdateMutexName);
        if (pauses) {
            m_machine.FailCall(Call::kWaitForAny, 1, 6);
        }
        StartRunning();
        m_machine.FailCall(Call::kPulseNamedEventMisses, 1, 0);
        m_running.Stop(100);
        m_machine.RunUntilIdle();
        EXPECT_FALSE(m_machine.NamedObjectExists(kUpdateEventName));
        m_machine.OtherProcessReleasesMutex(kUpdateMutexName);
    }
    EXPECT_THAT(m_running.results, ElementsAre(FALSE, FALSE));
    EXPECT_EQ(m_machine.ElapsedMs(), 200);
}

TEST_F(UpdaterMutex, PassWithoutMutexGoesOnWithoutWaiting)
{
    // Update before Start: there is no mutex yet.
    EXPECT_TRUE(UpdateSite());
    EXPECT_EQ(m_machine.CallCount(Call::kWaitForAny), 0U);
    EXPECT_EQ(m_machine.CallCount(Call::kReleaseOwnedMutex), 0U);
    EXPECT_THAT(m_site.written, SizeIs(5));
}

TEST_F(UpdaterMutex, MutexIsReleasedAfterAPassWithoutClock)
{
    m_machine.FailCall(Call::kLocalCalendarToTime, 1, 87);
    StartRunning();
    EXPECT_THAT(m_running.results, ElementsAre(TRUE));
    EXPECT_FALSE(m_machine.IsMutexOwned(kUpdateMutexName));
    EXPECT_EQ(m_machine.CallCount(Call::kReleaseOwnedMutex), 1U);
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
    // A record of the 1st lies before the window, one of each visited day inside.
    m_site.analyze = [this](DWORD, const CString&, DWORD) {
        auto records = FakeSite::WholeDay(At(2012, 7, 1, 0));
        records->AddAmporaData(FakeSite::WholeDay(m_site.days.back()).get());
        return records;
    };
    UpdateOne(&m_site);
    ASSERT_THAT(m_site.written, SizeIs(5));
    const DWORD kinds[] = {1, 2, 4, 8, 16};
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(m_site.written[i].dataType, kinds[i]);
        EXPECT_THAT(m_site.written[i].records, SizeIs(i < 3 ? 2 : 4));
    }
    EXPECT_EQ(CountTrace("TRA", "CAmporaDataCollection::AdjustData", "Out of Range. Remove Item"), 6);
}

TEST_F(AmporaUpdater, PassTrimsUsageToTwelveHoursOnEitherSide)
{
    bool firstDay = false;
    m_site.analyze = [&](DWORD, const CString&, DWORD) -> FakeSite::Records {
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
    EXPECT_TRUE(UpdateSite());
    const std::vector<ULONGLONG> inside = {2, 3};
    const std::vector<ULONGLONG> all = {1, 2, 3, 4};
    std::map<DWORD, std::vector<ULONGLONG>> values;
    for (const Written& written : m_site.written) {
        for (const _AmporaOneData& record : written.records) {
            values[written.dataType].push_back(record.ullValue);
        }
    }
    EXPECT_THAT(values,
                ElementsAre(Pair(1U, inside), Pair(2U, inside), Pair(4U, inside), Pair(8U, all), Pair(16U, all)));
    EXPECT_EQ(CountTrace("TRA", "CAmporaDataCollection::AdjustData", "Out of Range. Remove Item"), 6);
}

TEST_F(AmporaUpdater, DaysAreMergedAndWrittenOnce)
{
    m_machine.SetHttpHandler([](const HttpExchange&) { return HttpAnswer{.body = "report", .latencyMs = 1000}; });
    UpdateOne(&m_site);
    ASSERT_THAT(m_site.written, SizeIs(5));
    ASSERT_THAT(m_site.written[0].records, SizeIs(2));
    EXPECT_EQ(m_site.written[0].records[0].ullValue, 2U);
    EXPECT_EQ(m_site.written[0].records[1].ullValue, 3U);
    EXPECT_EQ(m_site.written[0].writeTime.wSecond, 2);
    EXPECT_EQ(m_site.written[4].writeTime.wSecond, 10);
}

TEST_F(AmporaUpdater, EmptyUrlSkipsTheDay)
{
    m_site.url = [](DWORD, const SYSTEMTIME&) { return CString(); };
    UpdateOne(&m_site);
    EXPECT_EQ(CountTrace("TRA", kUpdateOneName, "Get URL Empty. Skip"), 10);
    EXPECT_THAT(m_site.written, IsEmpty());
    EXPECT_THAT(m_machine.HttpExchanges(), IsEmpty());
}

TEST_F(AmporaUpdater, FailedDownloadOfTheFirstDayLeavesTheSecond)
{
    m_machine.FailCall(Call::kSendHttpRequest, 1, 12029);
    UpdateOne(&m_site);
    EXPECT_EQ(CountTrace("ERR", kUpdateOneName, "Get Data Fail"), 1);
    ASSERT_THAT(m_site.written, SizeIs(5));
    ASSERT_THAT(m_site.written[0].records, SizeIs(1));
    EXPECT_EQ(m_site.written[0].records[0].ullValue, 3U);
}

TEST_F(AmporaUpdater, FailedDownloadsOfBothDaysWriteNothing)
{
    m_machine.FailCall(Call::kSendHttpRequest, 1, 12029);
    m_machine.FailCall(Call::kSendHttpRequest, 2, 12029);
    UpdateOne(&m_site);
    EXPECT_EQ(CountTrace("ERR", kUpdateOneName, "Get Data Fail"), 2);
    ASSERT_THAT(m_site.written, SizeIs(4));
    EXPECT_EQ(m_site.written[0].dataType, 2U);
}

TEST_F(AmporaUpdater, FailedAnalysisIsTracedAndTheOtherDayWritten)
{
    int calls = 0;
    m_site.analyze = [&](DWORD, const CString&, DWORD) {
        return ++calls == 2 ? nullptr : FakeSite::WholeDay(m_site.days.back());
    };
    UpdateOne(&m_site);
    EXPECT_EQ(CountTrace("ERR", kUpdateOneName, "Analyze Error"), 1);
    ASSERT_THAT(m_site.written, SizeIs(5));
    ASSERT_THAT(m_site.written[0].records, SizeIs(1));
    EXPECT_EQ(m_site.written[0].records[0].ullValue, 2U);
}

TEST_F(AmporaUpdater, BodyAndStatusReachTheAnalysis)
{
    m_machine.SetHttpHandler([](const HttpExchange&) { return HttpAnswer{503, "unread"}; });
    std::vector<std::pair<CString, DWORD>> seen;
    m_site.analyze = [&](DWORD, const CString& body, DWORD status) {
        seen.emplace_back(body, status);
        return nullptr;
    };
    UpdateOne(&m_site);
    ASSERT_THAT(seen, SizeIs(10));
    EXPECT_EQ(seen[0].first, L"");
    EXPECT_EQ(seen[0].second, 503U);
}

TEST_F(AmporaUpdater, EachDownloadStartsWithAnEmptyBody)
{
    std::vector<CString> bodies;
    m_site.analyze = [&](DWORD, const CString& body, DWORD) {
        bodies.push_back(body);
        return nullptr;
    };
    UpdateOne(&m_site);
    EXPECT_THAT(bodies, ::testing::Each(CString(L"report")));
}

TEST_F(AmporaUpdater, ExitAfterADownloadIsTracedTwice)
{
    m_machine.SetHttpHandler([this](const HttpExchange&) {
        m_updater.SetExit();
        return HttpAnswer{200, "report"};
    });
    UpdateOne(&m_site);
    EXPECT_EQ(CountTrace("TRA", kUpdateOneName, "Exit Flag on"), 2);
    EXPECT_THAT(m_site.written, IsEmpty());
    EXPECT_THAT(m_machine.HttpExchanges(), SizeIs(1));
}

TEST_F(AmporaUpdater, ExitAfterTheDaysIsTracedOnce)
{
    m_site.analyze = [&](DWORD, const CString&, DWORD) {
        m_updater.SetExit();
        return FakeSite::WholeDay(m_site.days.back());
    };
    UpdateOne(&m_site);
    EXPECT_EQ(CountTrace("TRA", kUpdateOneName, "Exit Flag on"), 1);
    EXPECT_THAT(m_site.written, IsEmpty());
}

TEST_F(AmporaUpdater, ExitBeforeAKindStopsSilently)
{
    m_site.out = [this](DWORD) { m_updater.SetExit(); };
    UpdateOne(&m_site);
    EXPECT_THAT(m_site.written, SizeIs(1));
    EXPECT_EQ(CountTrace("TRA", kUpdateOneName, "Exit Flag on"), 0);
}

TEST_F(AmporaUpdater, ExceptionCostsOneKind)
{
    m_site.out = [](DWORD dataType) {
        if (dataType == catalogue::kActualUsage) {
            throw std::runtime_error("disk fails");
        }
    };
    UpdateOne(&m_site);
    EXPECT_THAT(m_site.written, SizeIs(5));
    EXPECT_TRUE(TraceScopesBalance(TraceLines()));
}

TEST_F(AmporaUpdater, FailedRequestCostsOneKind)
{
    m_machine.FailCall(Call::kOpenHttpRequestThrows, 1, 12005);
    UpdateOne(&m_site);
    ASSERT_THAT(m_site.written, SizeIs(4));
    EXPECT_EQ(m_site.written[0].dataType, 2U);
}

TEST_F(AmporaUpdater, EmptyCollectionIsWritten)
{
    m_site.analyze = [](DWORD, const CString&, DWORD) { return std::make_unique<CAmporaDataCollection>(); };
    UpdateOne(&m_site);
    ASSERT_THAT(m_site.written, SizeIs(5));
    EXPECT_THAT(m_site.written[0].records, IsEmpty());
}

// --- SetIntervalUpdate ----------------------------------------------------------------------------------------------

class UpdaterInterval : public AmporaUpdater {
protected:
    UpdaterInterval() { EXPECT_TRUE(m_timer.Create()); }

    void PutInterval(DWORD interval, DWORD minimum, DWORD maximum)
    {
        Put(L"Interval", interval);
        Put(L"IntervalMin", minimum);
        Put(L"IntervalMax", maximum);
    }
    // Waits for the timer. How long that took, in minutes.
    std::int64_t MinutesUntilDue()
    {
        const std::int64_t before = m_machine.ElapsedMs();
        EXPECT_EQ(platform::WaitForOne(m_never, INFINITE, TRUE), WAIT_IO_COMPLETION);
        EXPECT_EQ((m_machine.ElapsedMs() - before) % 60000, 0);
        return (m_machine.ElapsedMs() - before) / 60000;
    }

    platform::WaitHandle m_never = platform::CreateNamedEvent(L"NobodySetsIt", nullptr);
    CWaitTableTimer m_timer;
};

TEST_F(UpdaterInterval, EqualZeroBoundsGiveExactlyTheInterval)
{
    PutInterval(45, 0, 0);
    m_machine.ClearDebugLines();
    EXPECT_TRUE(m_updater.SetIntervalUpdate(&m_timer));
    EXPECT_THAT(TraceMessages(), ElementsAre(TraceLine{"TRA", kIntervalName, "Interval:45min, Rand:0min - 0min"},
                                             TraceLine{"TRA", kIntervalName, "Set Interval:45min"},
                                             TraceLine{"TRA", "CWaitTableTimer::Start", "Timer Started"}));
    EXPECT_EQ(MinutesUntilDue(), 45);
}

TEST_F(UpdaterInterval, DefaultsGive15To44Minutes)
{
    for (int i = 0; i < 200; ++i) {
        ASSERT_TRUE(m_updater.SetIntervalUpdate(&m_timer));
        const std::int64_t minutes = MinutesUntilDue();
        ASSERT_GE(minutes, 15);
        ASSERT_LE(minutes, 44);
    }
    EXPECT_EQ(CountTrace("TRA", kIntervalName, "Interval:30min, Rand:-15min - 15min"), 200);
}

TEST_F(UpdaterInterval, ReversedBoundsAreSwapped)
{
    PutInterval(30, 10, static_cast<DWORD>(-10));
    ASSERT_TRUE(m_updater.SetIntervalUpdate(&m_timer));
    EXPECT_EQ(CountTrace("TRA", kIntervalName, "Interval:30min, Rand:10min - -10min"), 1);
    const std::int64_t minutes = MinutesUntilDue();
    EXPECT_GE(minutes, 20);
    EXPECT_LT(minutes, 40);
}

TEST_F(UpdaterInterval, FailedTimerIsReported)
{
    CWaitTableTimer timer; // never created
    EXPECT_FALSE(m_updater.SetIntervalUpdate(&timer));
    EXPECT_EQ(CountTrace("ERR", "CWaitTableTimer::Start", "Timer Start Fail.(0x00000006)"), 1);
}

TEST_F(UpdaterInterval, LargestSettingsDoNotOverflow)
{
    PutInterval(0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF);
    EXPECT_TRUE(m_updater.SetIntervalUpdate(&m_timer));
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
}

INSTANTIATE_TEST_SUITE_P(EachStep, AmporaUpdaterStart,
                         testing::Values(StartFault{Call::kInitializeDescriptor, "InitializeSecurityDescriptor Fail."},
                                         StartFault{Call::kSetNullDacl, "SetSecurityDescriptorDacl Fail."},
                                         StartFault{Call::kCreateNamedMutex, "CreateMutex Fail."},
                                         StartFault{Call::kCreateNamedEvent, "CreateEvent Fail."},
                                         StartFault{Call::kStartThread, "Start Fail."}));

TEST_F(AmporaUpdater, StartThatRunsOutOfMemoryLeavesNothingOpen)
{
    // Symptom: after a Start that had run out of memory, the next one said "Already Started" without a worker.
    bool failed = true;
    for (unsigned nth = 1; failed; ++nth) {
        bool started = false;
        {
            const testing_support::CFailingMemory memory(nth);
            try {
                started = m_updater.Start() != FALSE;
            } catch (const std::bad_alloc&) {
            }
            failed = memory.HasFailed();
        }
        EXPECT_EQ(m_machine.NamedObjectExists(kUpdateEventName), started) << "allocation " << nth;
        EXPECT_EQ(m_machine.NamedObjectExists(kUpdateMutexName), started) << "allocation " << nth;
        m_updater.Stop(1000);
    }
}

TEST_F(AmporaUpdater, InitialPassRunsAtTheFirstStartOnly)
{
    StartEnabled();
    m_updater.Stop(1000);
    EXPECT_THAT(m_machine.HttpExchanges(), SizeIs(kRequestsOfAPass));
    EXPECT_EQ(CountTrace("TRA", kThreadName, "Update Flag ON"), 1);
    EXPECT_EQ(CountTrace("TRA", kThreadName, "Updated"), 1);
    Start();
    m_updater.Stop(1000);
    EXPECT_THAT(m_machine.HttpExchanges(), SizeIs(kRequestsOfAPass));
}

TEST_F(AmporaUpdater, DefaultPassUsesOneConnection)
{
    StartEnabled();
    m_updater.Stop(1000);
    const std::vector<HttpExchange> exchanges = m_machine.HttpExchanges();
    ASSERT_THAT(exchanges, SizeIs(kRequestsOfAPass));
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
    Start();
    EXPECT_THAT(m_machine.HttpExchanges(), IsEmpty());
    m_updater.Stop(1000);
    EXPECT_EQ(CountTrace("TRA", kThreadName, "Update Flag ON"), 0);
    // Switched on later, a second start makes up for nothing.
    StartEnabled();
    EXPECT_THAT(m_machine.HttpExchanges(), IsEmpty());
}

TEST_F(AmporaUpdater, StopDuringTheInitialPassIsAFailedUpdate)
{
    Put(L"Enable", 1);
    m_machine.SetHttpHandler([this](const HttpExchange&) {
        m_updater.SetExit();
        return HttpAnswer{200, "report"};
    });
    Start();
    EXPECT_EQ(CountTrace("WAR", kThreadName, "Update Fail."), 1);
    EXPECT_EQ(CountTrace("TRA", kThreadName, "Exit..."), 1);
}

TEST_F(AmporaUpdater, StopBeforeTheWorkerRunsEndsItAtOnce)
{
    Put(L"Enable", 1);
    ASSERT_TRUE(m_updater.Start());
    m_updater.Stop(1000);
    EXPECT_EQ(CountTrace("TRA", kThreadName, "Exit..."), 1);
    EXPECT_THAT(m_machine.HttpExchanges(), IsEmpty());
}

TEST_F(AmporaUpdater, StopDuringADownloadLeavesTheWorkerToEndByItself)
{
    // The worker is inside a download of 20 s when it is stopped with 100 ms, the updater goes away, and the worker
    // finds its exit request after the download.
    Put(L"Enable", 1);
    m_machine.SetHttpHandler([](const HttpExchange&) { return HttpAnswer{.body = "report", .latencyMs = 20000}; });
    auto updater = std::make_shared<CAmporaUpdater>();
    const std::weak_ptr<CAmporaUpdater> watch = updater;
    ASSERT_TRUE(updater->Start());
    m_machine.RunFor(1000);
    updater->Stop(100);
    updater.reset();
    EXPECT_EQ(m_machine.ElapsedMs(), 1100);
    // Symptom: while a pass outlived its Stop, others still found the update event.
    EXPECT_FALSE(m_machine.NamedObjectExists(kUpdateEventName));
    // The mutex lives on with the pass: no other copy's pass may begin.
    EXPECT_TRUE(m_machine.IsMutexOwned(kUpdateMutexName));
    m_machine.RunFor(30000);
    EXPECT_TRUE(watch.expired());
    EXPECT_FALSE(m_machine.NamedObjectExists(kUpdateMutexName));
    EXPECT_THAT(m_machine.HttpExchanges(), SizeIs(1));
    EXPECT_EQ(CountTrace("TRA", kUpdateOneName, "Exit Flag on"), 2);
}

TEST_F(AmporaUpdater, ARestartedWorkerWaitsForTheOldPass)
{
    Put(L"Enable", 1);
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

TEST_F(AmporaUpdater, ConstructionAndDestructionAreTraced)
{
    m_machine.ClearDebugLines();
    {
        const CAmporaUpdater updater;
    }
    std::vector<std::string> entered;
    for (const TraceLine& line : TraceLines()) {
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
    Start();
    m_updater.Stop(1000);
    std::vector<std::string> order;
    for (const TraceLine& line : TraceLines()) {
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
    m_machine.ClearDebugLines();
    UpdateSite();
    EXPECT_TRUE(TraceScopesBalance(TraceLines()));
    EXPECT_EQ(CountTrace("TRA", kUpdateName, "Enter"), 1);
    EXPECT_EQ(CountTrace("TRA", kUpdateOneName, "Leave"), 1);
}

} // namespace
