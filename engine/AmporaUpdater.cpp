#include "engine/AmporaUpdater.h"

#include "config/ConfigUtil.h"
#include "config/SharedNames.h"
#include "config/TraceLog.h"
#include "data/CalendarTime.h"
#include "engine/AutoLock.h"
#include "engine/Schedule.h"
#include "engine/WaitTableTimer.h"
#include "fetch/AmporaPowerCompanies.h"
#include "fetch/NullDacl.h"
#include "format/Catalogue.h"
#include "platform/Clock.h"
#include "platform/Pause.h"

namespace {

constexpr std::int64_t kHalfDaySeconds = 43200;
constexpr std::int64_t kDaySeconds = 86400;
constexpr DWORD kFailedWaitPauseMs = 1000;

} // namespace

CAmporaUpdater::CAmporaUpdater() { const CTraceScope scope(L"CAmporaUpdater::CAmporaUpdater"); }

CAmporaUpdater::~CAmporaUpdater() { const CTraceScope scope(L"CAmporaUpdater::~CAmporaUpdater"); }

CAmporaUpdater::NamedObjects CAmporaUpdater::Objects() const
{
    const CAutoLock lock(&m_objectsLock);
    return m_objects;
}

void CAmporaUpdater::SetObjects(NamedObjects objects)
{
    const CAutoLock lock(&m_objectsLock);
    m_objects = std::move(objects);
}

BOOL CAmporaUpdater::Start()
{
    const CTraceScope scope(L"CAmporaUpdater::Start");
    const CAutoLock lock(&m_lock);
    if (Objects().event) {
        scope.Tra(L"Already Started");
        return TRUE;
    }
    // The copies of all users and sessions must be able to open them.
    const platform::SecurityDescriptorPtr everybody = MakeNullDacl(scope);
    if (!everybody) {
        return FALSE;
    }
    NamedObjects objects;
    objects.mutex = platform::CreateNamedMutex(kUpdateMutexName, FALSE, everybody.get());
    if (!objects.mutex) {
        scope.Err(L"CreateMutex Fail.");
        return FALSE;
    }
    objects.event = platform::CreateNamedEvent(kUpdateEventName, everybody.get());
    if (!objects.event) {
        scope.Err(L"CreateEvent Fail.");
        return FALSE;
    }
    SetObjects(std::move(objects)); // before the worker, which uses them
    struct Undo {
        ~Undo()
        {
            if (updater != nullptr) {
                updater->SetObjects({});
            }
        }
        CAmporaUpdater* updater;
    } withoutWorker{this};
    if (!CAmporaThread::Start()) {
        scope.Err(L"Start Fail.");
        return FALSE;
    }
    withoutWorker.updater = nullptr;
    return TRUE;
}

void CAmporaUpdater::Stop(DWORD timeoutMs)
{
    const CTraceScope scope(L"CAmporaUpdater::Stop");
    const CAutoLock lock(&m_lock);
    SetExit();
    if (const NamedObjects objects = Objects(); objects.event) {
        platform::PulseNamedEvent(objects.event);
    }
    CAmporaThread::Stop(timeoutMs);
    SetObjects({});
}

void CAmporaUpdater::ThreadProc()
{
    const CTraceScope scope(L"CAmporaUpdater::ThreadProc");
    CAmporaTokyoPowerCompany tokyo;
    CAmporaTohokuPowerCompany tohoku;
    CAmporaKansaiPowerCompany kansai;
    CAmporaChubuPowerCompany chubu;
    CAmporaKyushuPowerCompany kyushu;
    CAmporaSiteConfig* const sites[] = {&tokyo, &tohoku, &kansai, &chubu, &kyushu, nullptr};
    static_assert(std::size(sites) == catalogue::kCompanies.size() + 1);
    if (IsExitSet()) {
        scope.Tra(L"Exit...");
        return;
    }
    BOOL initialResult = TRUE;
    if (m_initialUpdate) {
        initialResult = RunInitialUpdate(scope, sites);
        m_initialUpdate = false;
    }
    if (IsExitSet()) {
        scope.Tra(L"Exit...");
        return;
    }
    CWaitTableTimer timer;
    if (timer.Create()) {
        scope.Tra(L"Created Timer");
    } else {
        scope.Err(L"Timer Create Fail");
    }
    // Without a first pass there is no interval to count, so today's base time comes first.
    const bool armed = !initialResult && ArmBaseTimer(scope, timer);
    if (!IsExitSet()) {
        RunSchedule(scope, timer, armed, sites);
    }
    timer.Close();
}

BOOL CAmporaUpdater::RunInitialUpdate(const CTraceLog& log, CAmporaSiteConfig* const* sites)
{
    if (!CConfigUtil::IsUpdateEnable()) {
        return FALSE;
    }
    log.Tra(L"Update Flag ON");
    const BOOL updated = Update(sites);
    if (updated) {
        log.Tra(L"Updated");
    } else {
        log.War(L"Update Fail.");
    }
    return updated;
}

bool CAmporaUpdater::ArmBaseTimer(const CTraceLog& log, CWaitTableTimer& timer)
{
    const std::int64_t now = platform::ReadTime();
    LONG fixedClock = 0;
    LONG minimum = 0;
    LONG maximum = 0;
    CConfigUtil::GetFixedClockSetting(fixedClock, minimum, maximum);
    SYSTEMTIME local{};
    const int hour = platform::TimeToLocalCalendar(now, &local) ? local.wHour : -1;
    if (!IsBeforeBaseTime(hour, fixedClock)) {
        log.Tra(L"After Base Update Time.(%d clock)", fixedClock);
        return false;
    }
    log.Tra(L"Before Base Update Time.(%d clock)", fixedClock);
    const std::int64_t baseTime = TimeFromCalendar(BaseTime(CalendarFromTime(now), fixedClock));
    const LONG minutes = m_random.Draw(minimum, maximum);
    log.Tra(L"Set Random mins is %d", minutes);
    LARGE_INTEGER dueTime{};
    dueTime.QuadPart = static_cast<LONGLONG>(CountFromTime(DelayedTime(baseTime, minutes)));
    if (!timer.Start(&dueTime)) {
        log.Err(L"Start UpdateTimer Fail");
        return false;
    }
    log.Tra(L"Start UpdateTimer");
    return true;
}

void CAmporaUpdater::RunSchedule(const CTraceLog& log, CWaitTableTimer& timer, bool armed,
                                 CAmporaSiteConfig* const* sites)
{
    do {
        if (!armed) {
            if (SetIntervalUpdate(&timer)) {
                log.Tra(L"Next UpdateTimer Started");
            } else {
                log.Err(L"Next UpdateTimer Start Fail");
            }
        }
        // Read again each time: a Stop between two waits has closed the event.
        const DWORD result = platform::WaitForOne(Objects().event, INFINITE, TRUE);
        if (result == WAIT_IO_COMPLETION) {
            log.Tra(L"Update Timer Over");
        } else if (result == WAIT_OBJECT_0) {
            timer.Cancel();
            log.Tra(L"Exit Signal or Manual Update");
        } else {
            return;
        }
        armed = false;
        if (IsExitSet()) {
            log.Tra(L"Exit Signal.");
            return;
        }
        if (!RunDueUpdate(log, sites)) {
            return;
        }
    } while (!IsExitSet());
}

bool CAmporaUpdater::RunDueUpdate(const CTraceLog& log, CAmporaSiteConfig* const* sites)
{
    if (!CConfigUtil::IsUpdateEnable()) {
        log.Tra(L"Update Flag OFF");
        return true;
    }
    log.Tra(L"Update Flag ON");
    if (!Update(sites)) {
        log.War(L"Update Fail.");
    }
    if (IsExitSet()) {
        log.Tra(L"Exit Signal.");
        return false;
    }
    return true;
}

CAmporaUpdater::Turn CAmporaUpdater::WaitForTurn(const NamedObjects& objects) const
{
    Turn turn;
    const platform::WaitHandle handles[] = {objects.mutex, objects.event};
    for (DWORD result = WAIT_TIMEOUT; result != WAIT_OBJECT_0;) {
        result = platform::WaitForAny(handles, INFINITE, TRUE); // alertably, for Stop may interrupt it
        // An abandoned mutex is owned, too, and the next wait acquires it once more.
        if (result == WAIT_OBJECT_0 || result == WAIT_ABANDONED_0) {
            ++turn.acquisitions;
        }
        if (result == WAIT_FAILED && !IsExitSet()) {
            // A wait that keeps failing must not spin. The pulse of a Stop ends this pause and is used up by it.
            if (platform::WaitForOne(objects.event, kFailedWaitPauseMs, TRUE) == WAIT_FAILED) {
                platform::Pause(kFailedWaitPauseMs);
            }
        }
        if (IsExitSet()) {
            turn.exit = true;
            return turn;
        }
    }
    return turn;
}

BOOL CAmporaUpdater::Update(CAmporaSiteConfig* const* sites)
{
    const CTraceScope scope(L"CAmporaUpdater::Update");
    NamedObjects objects = Objects();
    Turn turn;
    if (objects.mutex) {
        turn = WaitForTurn(objects);
    }
    // Only the wait needs it. If a pass that outlives its Stop kept it open, others would take the program for running.
    objects.event.reset();
    if (turn.exit) {
        // A mutex acquired at this moment is abandoned when the thread ends.
        scope.Tra(L"Exit Signal.");
        return FALSE;
    }
    BOOL result = TRUE;
    try {
        SYSTEMTIME now{};
        platform::ReadLocalClock(&now);
        const std::int64_t time = TimeFromCalendar(now);
        const SYSTEMTIME start = CalendarFromTime(time - kHalfDaySeconds);
        const SYSTEMTIME end = CalendarFromTime(time + kHalfDaySeconds);
        for (; *sites != nullptr; ++sites) {
            UpdateOnePowerCompany(&m_httpClient, *sites, start, end);
            if (IsExitSet()) {
                result = FALSE;
                scope.Tra(L"Exit Flag ON");
                break;
            }
        }
    } catch (...) { // NOLINT(bugprone-empty-catch): a pass that fails changes nothing in the schedule
    }
    for (; turn.acquisitions > 0; --turn.acquisitions) {
        platform::ReleaseOwnedMutex(objects.mutex);
    }
    return result;
}

void CAmporaUpdater::UpdateOnePowerCompany(CAmporaHttpClient* client, CAmporaSiteConfig* site, const SYSTEMTIME& start,
                                           const SYSTEMTIME& end)
{
    const CTraceScope scope(L"CAmporaUpdater::UpdateOnePowerCompany");
    if (site == nullptr) {
        scope.Err(L"Invalid Parameter");
        return;
    }
    for (const catalogue::Kind& kind : catalogue::kKinds) {
        if (IsExitSet()) {
            return;
        }
        try {
            const std::unique_ptr<CAmporaDataCollection> merged =
                FetchDays(scope, *client, *site, kind.dataType, start, end);
            if (IsExitSet()) {
                scope.Tra(L"Exit Flag on");
                return;
            }
            if (merged) {
                SYSTEMTIME writeTime{};
                platform::ReadLocalClock(&writeTime);
                if (kind.isTrimmed) {
                    merged->AdjustData(start, end);
                }
                site->OutData(kind.dataType, merged.get(), writeTime);
            }
        } catch (...) { // NOLINT(bugprone-empty-catch): a failure costs one kind only
        }
    }
}

std::unique_ptr<CAmporaDataCollection> CAmporaUpdater::FetchDays(const CTraceLog& log, CAmporaHttpClient& client,
                                                                 CAmporaSiteConfig& site, DWORD dataType,
                                                                 const SYSTEMTIME& start, const SYSTEMTIME& end) const
{
    std::unique_ptr<CAmporaDataCollection> merged;
    std::int64_t day = TimeFromCalendar(start);
    const std::int64_t last = TimeFromCalendar(end);
    for (; day <= last && !IsExitSet(); day += kDaySeconds) {
        const CString url = site.GetURL(dataType, CalendarFromTime(day));
        if (url.empty()) {
            log.Tra(L"Get URL Empty. Skip");
            continue;
        }
        CString body;
        DWORD status = 0;
        const BOOL received = client.GetData(url, body, status);
        if (IsExitSet()) {
            log.Tra(L"Exit Flag on");
            break;
        }
        if (!received) {
            log.Err(L"Get Data Fail");
            continue;
        }
        std::unique_ptr<CAmporaDataCollection> records = site.AnalyzeData(dataType, std::move(body), status);
        if (!records) {
            log.Err(L"Analyze Error");
        } else if (!merged) {
            merged = std::move(records);
        } else {
            merged->AddAmporaData(records.get());
        }
    }
    return merged;
}

BOOL CAmporaUpdater::SetIntervalUpdate(CWaitTableTimer* timer)
{
    const CTraceScope scope(L"CAmporaUpdater::SetIntervalUpdate");
    LONG interval = 0;
    LONG minimum = 0;
    LONG maximum = 0;
    CConfigUtil::GetIntervalSetting(interval, minimum, maximum);
    scope.Tra(L"Interval:%dmin, Rand:%dmin - %dmin", interval, minimum, maximum);
    const LONG random = m_random.Draw(minimum, maximum);
    scope.Tra(L"Set Interval:%dmin", LONGLONG{interval} + random);
    const LARGE_INTEGER dueTime = IntervalDueTime(interval, random);
    return timer->Start(&dueTime);
}
