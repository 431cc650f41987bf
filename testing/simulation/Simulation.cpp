#include "testing/simulation/Simulation.h"

#include "app/AmporaSrvApp.h"
#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/Sync.h"
#include "platform/Thread.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace simulation {

using platform::Hive;
using platform::sim::Call;
using testing_support::HttpExchange;

namespace {

constexpr wchar_t kMainKey[] = L"Software\\Halvex\\AmporaSrv";
constexpr wchar_t kUpdateMutex[] = L"Global\\AmporaSrvUpdateMutex";
constexpr wchar_t kUpdateEvent[] = L"AmporaSrvUpdateEvent";

CString SiteKey(int site) { return CString(kMainKey) + L"\\site\\" + std::to_wstring(site); }

template <class Value, std::size_t count>
Value OneOf(CGenerator& random, const Value (&values)[count])
{
    return values[random.Below(count)];
}

// Lets time pass on a thread of a simulated process.
void Rest(const std::wstring& eventName, std::int64_t timeMs)
{
    const platform::WaitHandle never = platform::CreateNamedEvent(eventName.c_str(), nullptr);
    platform::WaitForOne(never, static_cast<DWORD>(timeMs), FALSE);
}

// Which calls fail under which option, and how often.
struct FaultRate {
    Call call;
    bool Options::*isWanted;
    unsigned perMille;
};
constexpr FaultRate kFaultRates[] = {
    {Call::kQuerySettingsValue, &Options::settingsFaults, 2},
    {Call::kCreateNamedMutex, &Options::objectFaults, 60},
    {Call::kCreateNamedMutexThrows, &Options::objectFaults, 60},
    {Call::kCreateNamedEvent, &Options::objectFaults, 60},
    {Call::kStartThread, &Options::objectFaults, 60},
    {Call::kRegisterSessionNotices, &Options::objectFaults, 60},
    {Call::kMakeTimer, &Options::timerFaults, 40},
    {Call::kArmTimer, &Options::timerFaults, 40},
    {Call::kDisarmTimer, &Options::timerFaults, 40},
    {Call::kWaitForOne, &Options::waitFaults, 10},
    {Call::kWaitForAny, &Options::waitFaults, 60},
    {Call::kPulseNamedEventMisses, &Options::missedPulses, 300},
    {Call::kOpenForReplace, &Options::openFaults, 30},
    {Call::kWriteFileBytes, &Options::writeFaults, 20},
    {Call::kOutputDebugText, &Options::outputFaults, 20},
};

} // namespace

int RunAmporaSrv(const std::vector<CString>& arguments)
{
    CAmporaSrvApp application;
    return application.Run(arguments);
}

CSimulation::CSimulation(std::uint64_t seed, const Options& options, Entry entry, bool keepsLog)
    : m_options(options), m_entry(std::move(entry)), m_random(seed * 3), m_answers(seed * 3 + 1),
      m_faults(seed * 3 + 2), m_log(keepsLog), m_zone(MakeZone()),
      m_checker(m_machine, m_log, m_zone, platform::ReadTime() * kSecondMs,
                [this](const TestKind& kind, const SYSTEMTIME& day, const CZone& zone) {
                    return DrawReply(m_answers, m_isCalm ? Options() : m_options, kind, day, zone);
                }),
      m_sessions(options.sessions)
{
    m_machine.KeepDebugLines(false);
    m_machine.KeepHttpExchanges(false);
    m_machine.SetObserver(&m_checker);
    m_machine.SetHttpHandler([this](const HttpExchange& exchange) { return m_checker.Answer(exchange); });
    m_machine.SetFaultPlan([this](Call call) { return PlanFault(call); });
    MakeFirstSettings();
    for (SessionPlan& session : m_sessions) {
        session.startsMs = m_random.Between(0, kDayMs);
    }
}

CSimulation::~CSimulation()
{
    constexpr std::int64_t kLongestEndMs = 70'000;
    m_isCalm = true;
    // A session of a program with a flaw may have several windows, of which one is found at a time.
    for (int i = 0; HasFailed() && i < 3; ++i) {
        for (unsigned session = 1; session <= m_sessions.size(); ++session) {
            m_machine.OtherProcessPosts(L"Ampora", WM_QUIT, 0, 0, session);
        }
        m_machine.RunFor(kLongestEndMs);
    }
}

CZone CSimulation::MakeZone()
{
    constexpr int kOffsets[] = {9 * 60, 9 * 60, 0, 60, -5 * 60, 5 * 60 + 30};
    constexpr std::int64_t kLatestStartMs = 300 * kDayMs;
    constexpr std::int64_t kChangeMs = 9 * kDayMs; // at most one change in this time
    const int offset = OneOf(m_random, kOffsets);
    m_machine.SetUtcOffset(offset);
    m_machine.PassSuspended(m_random.Between(0, kLatestStartMs) / kSecondMs * kSecondMs);
    CZone zone(offset);
    bool isSummer = false;
    const UtcMs now = platform::ReadTime() * kSecondMs;
    for (UtcMs from = now; m_options.daylightSaving && from < now + m_options.days * kDayMs; from += kChangeMs) {
        isSummer = !isSummer;
        const UtcMs change = (from + m_random.Between(0, kChangeMs - 3 * kDayMs)) / kMinuteMs * kMinuteMs;
        const int changed = offset + (isSummer ? 60 : 0);
        zone.Change(change, changed);
        m_machine.PlanUtcOffset(change / kSecondMs, changed);
    }
    return zone;
}

void CSimulation::PutSetting(Hive hive, unsigned session, const CString& keyPath, const CString& name, LONG value)
{
    m_machine.PutDword(hive, keyPath, name, static_cast<DWORD>(value), session);
}

// Intervals are hours, so that there is no more of the same than is needed.
void CSimulation::MakeFirstSettings()
{
    constexpr LONG kIntervals[] = {4 * 60, 6 * 60, 8 * 60, 12 * 60};
    PutSetting(Hive::kMachine, 1, kMainKey, L"LogLevel", static_cast<LONG>(m_options.logLevel));
    PutSetting(Hive::kMachine, 1, kMainKey, L"Enable", !m_options.settings || m_random.Chance(700) ? 1 : 0);
    PutSetting(Hive::kMachine, 1, kMainKey, L"Interval", OneOf(m_random, kIntervals));
    for (const TestCompany& company : kTestCompanies) {
        PutSetting(Hive::kMachine, 1, SiteKey(company.site), L"Enable", m_random.Chance(450) ? 1 : 0);
    }
}

unsigned CSimulation::FaultPerMille(Call call) const
{
    for (const FaultRate& rate : kFaultRates) {
        if (rate.call == call) {
            return m_options.*rate.isWanted ? rate.perMille : 0;
        }
    }
    return 0;
}

std::optional<DWORD> CSimulation::PlanFault(Call call)
{
    const unsigned perMille = m_isCalm ? 0 : FaultPerMille(call);
    const DWORD processId = platform::CurrentProcessIdentifier();
    if (perMille == 0 || !m_checker.IsProgram(processId)) {
        return std::nullopt;
    }
    // Every program first makes the mutex that keeps a second copy from running, which is needed to know who runs.
    if (call == Call::kCreateNamedMutexThrows) {
        ++m_mutexCalls[processId];
    }
    const bool isMutex = call == Call::kCreateNamedMutexThrows || call == Call::kCreateNamedMutex;
    if ((isMutex && m_mutexCalls[processId] == 1) || !m_faults.Chance(perMille)) {
        return std::nullopt;
    }
    m_checker.OnFault(call);
    constexpr DWORD kCodes[] = {ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE, ERROR_OUTOFMEMORY};
    return OneOf(m_faults, kCodes);
}

void CSimulation::Run()
{
    constexpr std::int64_t kLongestQuietMs = 10 * kHourMs;
    const std::vector<Event> events = WantedEvents();
    while (m_machine.ElapsedMs() < m_options.days * kDayMs && !HasFailed()) {
        StartMissingCopies();
        // Now and then much happens within moments.
        RunFor(m_random.Chance(200) ? m_random.Between(0, 3'000) : m_random.Between(0, kLongestQuietMs));
        if (!events.empty() && !HasFailed()) {
            (this->*events[m_random.Below(events.size())])();
        }
    }
    for (const auto step : {&CSimulation::Calm, &CSimulation::Converge, &CSimulation::TakeDown}) {
        if (!HasFailed()) {
            (this->*step)();
        }
    }
}

void CSimulation::RunFor(std::int64_t timeMs)
{
    m_machine.RunFor(timeMs);
    m_checker.CheckDeadlines();
}

DWORD CSimulation::RunningCopy(unsigned session) const
{
    const ProgramState* copy = m_checker.CopyOf(session);
    return copy == nullptr || copy->isQuitting ? 0 : copy->processId;
}

void CSimulation::StartMissingCopies()
{
    for (unsigned session = 1; session <= m_sessions.size(); ++session) {
        if (m_machine.ElapsedMs() >= m_sessions[session - 1].startsMs && m_checker.CopyOf(session) == nullptr) {
            StartProgram(session);
        }
    }
}

DWORD CSimulation::StartProcess(unsigned session, const std::vector<CString>& arguments)
{
    return m_machine.StartProcess(session, [this, arguments] {
        const int exitCode = m_entry(arguments);
        m_checker.OnEntryReturns(platform::CurrentProcessIdentifier());
        return exitCode;
    });
}

void CSimulation::StartProgram(unsigned session)
{
    m_checker.OnProgramStarted(StartProcess(session, {}), session);
    m_sessions[session - 1].isConnected = true;
}

void CSimulation::StartShortCopy(unsigned session, const std::vector<CString>& arguments)
{
    m_checker.OnShortCopyStarted(StartProcess(session, arguments), session);
}

std::vector<CSimulation::Event> CSimulation::WantedEvents() const
{
    const std::pair<bool, Event> known[] = {
        {m_options.suspend, &CSimulation::SuspendAndResume},
        {m_options.console, &CSimulation::SwitchConsole},
        {m_options.clockJumps, &CSimulation::JumpClock},
        {m_options.manual, &CSimulation::RequestUpdate},
        {m_options.settings, &CSimulation::ChangeSetting},
        {m_options.exits, &CSimulation::TellToExit},
        {m_options.secondCopies, &CSimulation::StartSecondCopy},
        {m_options.foreignMutex, &CSimulation::TakeUpdateMutex},
        {m_options.offline, &CSimulation::SwitchNetwork},
        {m_options.diskFull, &CSimulation::SwitchDiskSpace},
        {m_options.readers, &CSimulation::SwitchReader},
    };
    std::vector<Event> wanted;
    for (const auto& [isWanted, event] : known) {
        if (isWanted) {
            wanted.push_back(event);
        }
    }
    return wanted;
}

void CSimulation::PostOrder(unsigned session, Order::What what)
{
    if (const DWORD process = RunningCopy(session)) {
        m_checker.OnOrder(process, what);
    }
}

void CSimulation::NotifyPower(WPARAM event, Order::What what)
{
    Note("power event " + std::to_string(event));
    for (unsigned session = 1; session <= m_sessions.size(); ++session) {
        PostOrder(session, what);
    }
    m_machine.NotifyPower(event);
}

void CSimulation::MoveClock(std::int64_t byMs)
{
    Note("clock moves by " + std::to_string(byMs));
    m_checker.OnClockMoved(byMs);
    m_machine.PassSuspended(byMs);
}

void CSimulation::SuspendAndResume()
{
    NotifyPower(PBT_APMSUSPEND, Order::What::kStop);
    RunFor(m_random.Between(0, 2'000));
    MoveClock(m_random.Between(0, 20 * kHourMs));
    NotifyPower(PBT_APMRESUMEAUTOMATIC, Order::What::kStart);
    RunFor(m_random.Chance(500) ? 0 : m_random.Between(0, 3'000));
    NotifyPower(PBT_APMRESUMESUSPEND, Order::What::kStart);
}

void CSimulation::SwitchConsole()
{
    const unsigned session = AnySession();
    bool& isConnected = m_sessions[session - 1].isConnected;
    isConnected = !isConnected;
    Note("session " + std::to_string(session) + (isConnected ? " is entered" : " is left"));
    const ProgramState* copy = m_checker.CopyOf(session);
    if (copy != nullptr && copy->getsSessionNotices) {
        PostOrder(session, isConnected ? Order::What::kStart : Order::What::kStop);
    }
    m_machine.NotifySession(session, isConnected ? WTS_CONSOLE_CONNECT : WTS_CONSOLE_DISCONNECT);
}

void CSimulation::JumpClock()
{
    MoveClock(m_random.Chance(500) ? m_random.Between(-3 * kDayMs, 3 * kDayMs)
                                   : m_random.Between(-2 * kHourMs, 2 * kHourMs));
}

void CSimulation::RequestUpdate()
{
    const unsigned session = AnySession();
    Note("update wanted in session " + std::to_string(session));
    m_checker.OnManualUpdate(session);
    m_machine.OtherProcessSetsEvent(kUpdateEvent, session);
}

void CSimulation::ChangeSetting()
{
    static const std::pair<const wchar_t*, std::vector<LONG>> kMain[] = {
        {L"Interval", {4 * 60, 6 * 60, 8 * 60, 12 * 60}},
        {L"IntervalMin", {-90, -15, -1, 0, 10}},
        {L"IntervalMax", {-30, 0, 1, 15, 60}},
        {L"FixedClock", {0, 5, 9, 13, 18, 23, 24}},
        {L"FixedClockMin", {-20, 0, 10, 45}},
        {L"FixedClockMax", {0, 30, 90}}};
    const Hive hive = m_random.Chance(500) ? Hive::kPerUser : Hive::kMachine;
    const unsigned session = AnySession();
    const TestCompany& company = kTestCompanies[m_random.Below(std::size(kTestCompanies))];
    CString key = kMainKey;
    CString name = L"Enable";
    LONG value = m_random.Chance(650) ? 1 : 0;
    const std::uint64_t drawn = m_random.Below(4);
    if (drawn == 1 || drawn == 2) {
        key = SiteKey(company.site);
    }
    if (drawn == 2) {
        name = L"SupportDataType";
        value = static_cast<LONG>(m_random.Below(32));
    } else if (drawn == 3) {
        const auto& [number, values] = kMain[m_random.Below(std::size(kMain))];
        name = number;
        value = values[m_random.Below(values.size())];
    }
    PutOrRemove(hive, session, key, name, value);
}

// The machine-wide interval is always there, so that there is never a pass every half hour for long.
void CSimulation::PutOrRemove(Hive hive, unsigned session, const CString& key, const CString& name, LONG value)
{
    Note("setting " + std::to_string(static_cast<int>(hive)) + " of session " + std::to_string(session) + " becomes " +
         std::to_string(value));
    const bool mayGo = hive == Hive::kPerUser || (name != L"Interval" && name != L"Enable");
    if (mayGo && m_random.Chance(200)) {
        m_machine.RemoveSetting(hive, key, name, session);
    } else if (mayGo && m_random.Chance(50)) {
        m_machine.PutText(hive, key, name, L"1", session);
    } else {
        PutSetting(hive, session, key, name, value);
    }
}

void CSimulation::TellToExit()
{
    const unsigned session = AnySession();
    if (RunningCopy(session) != 0) {
        StartShortCopy(session, {m_random.Chance(500) ? L"/Exit" : L"-Exit"});
        PostOrder(session, Order::What::kQuit);
        m_sessions[session - 1].startsMs = m_machine.ElapsedMs() + m_random.Between(0, 12 * kHourMs);
    }
}

void CSimulation::StartSecondCopy()
{
    const unsigned session = AnySession();
    if (m_checker.CopyOf(session) != nullptr) {
        StartShortCopy(session, m_random.Chance(700) ? std::vector<CString>() : std::vector<CString>{L"/exit"});
    }
}

void CSimulation::TakeUpdateMutex()
{
    constexpr unsigned kForeignSession = 9;
    const std::int64_t timeMs = m_random.Between(0, 30 * kMinuteMs);
    const bool isKilled = m_random.Chance(400);
    Note("foreign process wants the mutex");
    m_machine.StartProcess(kForeignSession, [timeMs, isKilled, number = ++m_foreigners] {
        const platform::WaitHandle mutex = platform::CreateNamedMutex(kUpdateMutex, FALSE, nullptr);
        platform::WaitForOne(mutex, INFINITE, FALSE);
        Rest(L"Foreign" + std::to_wstring(number), timeMs);
        if (!isKilled) {
            platform::ReleaseOwnedMutex(mutex);
        }
        return 0;
    });
}

void CSimulation::SwitchNetwork()
{
    struct State {
        BOOL result;
        DWORD flags;
    };
    constexpr State kOffline[] = {{FALSE, 0}, {TRUE, 0}, {TRUE, 4}, {TRUE, 2 | 32}};
    m_hasNetwork = !m_hasNetwork;
    Note(m_hasNetwork ? "network is back" : "network is gone");
    const State state = m_hasNetwork ? State{TRUE, 2} : OneOf(m_random, kOffline);
    m_checker.OnConnected(m_hasNetwork);
    m_machine.SetConnectedState(state.result, state.flags);
}

void CSimulation::SwitchDiskSpace()
{
    m_diskIsFull = !m_diskIsFull;
    Note(m_diskIsFull ? "disk is nearly full" : "disk has room");
    m_checker.OnDiskLimited(m_diskIsFull);
    m_machine.SetFreeBytes(m_diskIsFull ? m_random.Below(2'000) : std::numeric_limits<std::size_t>::max());
}

void CSimulation::SwitchReader()
{
    const std::vector<CString> paths = m_machine.FilePaths();
    const bool begins = m_readPath.empty();
    if (begins && paths.empty()) {
        return;
    }
    const CString path = begins ? paths[m_random.Below(paths.size())] : m_readPath;
    Note(begins ? "file is read" : "file is let go");
    platform::sim::SimFile file = *m_machine.FindFile(path);
    file.heldOpen = begins;
    m_machine.PutFile(path, std::move(file));
    m_readPath = begins ? path : CString();
    m_checker.OnFileHeld(m_readPath);
}

void CSimulation::Calm()
{
    Note("calm");
    m_isCalm = true;
    if (!m_hasNetwork) {
        SwitchNetwork();
    }
    if (m_diskIsFull) {
        SwitchDiskSpace();
    }
    if (!m_readPath.empty()) {
        SwitchReader();
    }
    for (const wchar_t* name : {L"Interval", L"IntervalMin", L"IntervalMax", L"Enable"}) {
        for (unsigned session = 1; session <= m_sessions.size(); ++session) {
            m_machine.RemoveSetting(Hive::kPerUser, kMainKey, name, session);
            for (const TestCompany& company : kTestCompanies) {
                m_machine.RemoveSetting(Hive::kPerUser, SiteKey(company.site), name, session);
                m_machine.RemoveSetting(Hive::kPerUser, SiteKey(company.site), L"SupportDataType", session);
            }
        }
        m_machine.RemoveSetting(Hive::kMachine, kMainKey, name);
    }
    PutSetting(Hive::kMachine, 1, kMainKey, L"Enable", 1);
    for (const TestCompany& company : kTestCompanies) {
        PutSetting(Hive::kMachine, 1, SiteKey(company.site), L"Enable", 1);
        m_machine.RemoveSetting(Hive::kMachine, SiteKey(company.site), L"SupportDataType");
    }
}

void CSimulation::Converge()
{
    constexpr std::int64_t kLongestDownloadMs = 70'000;
    constexpr std::int64_t kForeignMs = 31 * kMinuteMs;
    constexpr std::int64_t kLongestIntervalMs = 45 * kMinuteMs;
    NotifyPower(PBT_APMSUSPEND, Order::What::kStop);
    RunFor(kLongestDownloadMs);
    for (SessionPlan& session : m_sessions) {
        session.startsMs = 0;
    }
    const unsigned passes = m_checker.PassCount();
    StartMissingCopies();
    NotifyPower(PBT_APMRESUMEAUTOMATIC, Order::What::kStart);
    RunFor(kForeignMs * (1 + static_cast<std::int64_t>(m_sessions.size())));
    RunFor(kLongestIntervalMs);
    m_checker.CheckConverged(static_cast<unsigned>(m_sessions.size()), passes);
}

void CSimulation::TakeDown()
{
    constexpr std::int64_t kLongestEndMs = 2'000;
    for (unsigned session = 1; session <= m_sessions.size(); ++session) {
        if (RunningCopy(session) != 0) {
            StartShortCopy(session, {L"/Exit"});
            PostOrder(session, Order::What::kQuit);
        }
    }
    RunFor(kLongestEndMs);
    m_checker.CheckLeftovers();
}

} // namespace simulation
