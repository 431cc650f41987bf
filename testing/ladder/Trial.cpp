#include "testing/ladder/Trial.h"

#include "config/SharedNames.h"
#include "config/TraceLog.h"
#include "platform/sim/Observer.h"
#include "platform/sim/Scheduler.h"
#include "platform/Text.h"
#include "testing/FailingMemory.h"
#include "testing/simulation/Replies.h"
#include "testing/simulation/RunLog.h"
#include "testing/simulation/Simulation.h"

#include <cstdio>
#include <iostream>

namespace ladder {

using platform::Hive;
using simulation::kMinuteMs;
using simulation::kSecondMs;
using testing_support::HttpAnswer;
using testing_support::HttpExchange;

namespace {

constexpr wchar_t kMainKey[] = L"Software\\Halvex\\AmporaSrv";

// Whose memory a thread uses. A worker's thread is made by the program, hence by default.
enum class Role { kWorker, kApplication, kLadder };
thread_local Role t_role = Role::kWorker;

// Makes the calling thread the ladder's for a while: its web and its notes do not run out of memory.
class CLaddersOwn {
public:
    CLaddersOwn() : m_before(std::exchange(t_role, Role::kLadder)) {}
    ~CLaddersOwn() { t_role = m_before; }
    CLaddersOwn(const CLaddersOwn&) = delete;
    CLaddersOwn& operator=(const CLaddersOwn&) = delete;

private:
    const Role m_before;
};

} // namespace

// One trial. The machine runs one thread at a time, so that nothing here needs a lock.
class CTrial : public platform::sim::CObserver {
public:
    CTrial(const Scenario& scenario, const Fault& fault, bool printsTrace);
    ~CTrial() override { t_current = nullptr; }

    Outcome Run(const Files* wanted);

    // For scenarios.
    platform::sim::CMachine& Machine() { return m_machine; }
    DWORD Start(const std::vector<CString>& arguments = {});
    void Enable(bool enable) { Put(L"Enable", enable ? 1 : 0); }
    void Post(UINT message) { m_machine.OtherProcessPosts(kWindowClassName, message, 0, 0); }
    void RequestUpdate() { m_machine.OtherProcessSetsEvent(kUpdateEventName); }

    void OnDebugLine(const platform::sim::Caller& caller, const CString& text) override;

private:
    // What the web answers: everything, all but some things, everything with other values.
    enum class Season { kBefore, kScenario, kAfter };

    void Put(const wchar_t* name, DWORD value) { m_machine.PutDword(Hive::kMachine, kMainKey, name, value); }
    void MakeSettings();
    HttpAnswer Answer(const HttpExchange& exchange);
    // Counts a call. Whether it has to fail. counted: itself, or kAnyCall.
    bool Take(Call counted, Call made);
    std::optional<DWORD> TakeCall(Call call);
    static bool TakesAllocation();

    Files DiskFiles() const;
    Recovery Recover(const Files* wanted);
    bool IsRight(const Files* wanted) const;
    std::string TakeDown();

    static inline CTrial* t_current = nullptr; // the one that exists

    const Scenario& m_scenario;
    const Fault m_fault;
    const bool m_printsTrace;
    platform::sim::CMachine m_machine;
    Season m_season = Season::kBefore;
    bool m_isOn = false; // things fail
    unsigned m_requests = 0;
    Outcome m_outcome;
    std::optional<testing_support::CFailingMemory> m_memory;
};

CTrial::CTrial(const Scenario& scenario, const Fault& fault, bool printsTrace)
    : m_scenario(scenario), m_fault(fault), m_printsTrace(printsTrace)
{
    t_current = this;
    t_role = Role::kLadder;
    m_machine.KeepDebugLines(false);
    m_machine.KeepHttpExchanges(false);
    m_machine.SetLocalClock({2012, 7, 1, 2, scenario.hour, 0, 0, 0});
    m_machine.SetObserver(this);
    m_machine.SetHttpHandler([this](const HttpExchange& exchange) { return Answer(exchange); });
    m_machine.SetFaultPlan([this](Call call) { return TakeCall(call); });
    MakeSettings();
}

// All companies, all kinds, and passes at known times.
void CTrial::MakeSettings()
{
    Put(L"LogLevel", m_scenario.logLevel);
    Put(L"Interval", m_scenario.intervalMinutes);
    Put(L"IntervalMin", 0);
    Put(L"IntervalMax", 0);
    Enable(true);
    for (const simulation::TestCompany& company : simulation::kTestCompanies) {
        m_machine.PutDword(Hive::kMachine, CString(kMainKey) + L"\\site\\" + std::to_wstring(company.site),
                           L"SupportDataType", 31);
    }
}

HttpAnswer CTrial::Answer(const HttpExchange& exchange)
{
    const CLaddersOwn own;
    ++m_requests;
    SYSTEMTIME day{};
    const auto request = testing_support::ParseTarget(exchange.target);
    if (!request || std::sscanf(request->date.c_str(), "%4hu-%2hu-%2hu", &day.wYear, &day.wMonth, &day.wDay) != 3 ||
        day.wYear == 0) {
        return {.status = 404};
    }
    simulation::CGenerator generator(simulation::HashOf(exchange.target) + static_cast<unsigned>(m_season));
    simulation::Options options;
    options.statuses = options.documents = options.bodies = m_season == Season::kScenario;
    const simulation::CZone zone(9 * 60);
    HttpAnswer answer =
        simulation::DrawReply(generator, options, testing_support::KindOf(request->dataType), day, zone).answer;
    answer.latencyMs = m_scenario.latencyMs;
    return answer;
}

void CTrial::OnDebugLine(const platform::sim::Caller& /*caller*/, const CString& text)
{
    const CLaddersOwn own;
    if (m_printsTrace) {
        std::cout << platform::EncodeUtf8(text);
    }
    if (m_outcome.failed && (text.starts_with(L"[ERR]") || text.starts_with(L"[WAR]"))) {
        m_outcome.lines.push_back(text);
    }
}

bool CTrial::Take(Call counted, Call made)
{
    constexpr unsigned kMostCalls = 1'000'000;
    const unsigned count = ++m_outcome.counts.at(IndexOf(counted));
    if (count > kMostCalls) {
        platform::sim::EndProgram("the program calls " + CallName(made) + " without an end");
    }
    const bool isDue = m_fault.lasts ? count >= m_fault.nth : count == m_fault.nth;
    const bool fails = counted == m_fault.call && m_fault.nth != 0 && isDue;
    if (fails && !m_outcome.failed) {
        m_outcome.failed = made;
        m_outcome.requestsBefore = m_requests;
    }
    return fails;
}

std::optional<DWORD> CTrial::TakeCall(Call call)
{
    if (!m_isOn) {
        return std::nullopt;
    }
    const CLaddersOwn own;
    const std::optional<DWORD> codeAmongAll = CodeAmongAll(call);
    const bool fails = Take(call, call);
    if (codeAmongAll && Take(kAnyCall, call)) {
        return codeAmongAll;
    }
    return fails ? std::optional(m_fault.code) : std::nullopt;
}

bool CTrial::TakesAllocation()
{
    if (t_current == nullptr || !t_current->m_isOn || t_role == Role::kLadder ||
        platform::sim::CMachineMemory::IsInUse()) {
        return false;
    }
    const Call call = t_role == Role::kApplication ? kApplicationMemory : kWorkerMemory;
    return t_current->Take(call, call);
}

DWORD CTrial::Start(const std::vector<CString>& arguments)
{
    return m_machine.StartProcess(1, [arguments] {
        t_role = Role::kApplication;
        return simulation::RunAmporaSrv(arguments);
    });
}

Files CTrial::DiskFiles() const
{
    Files files;
    for (const CString& path : m_machine.FilePaths()) {
        files[path] = m_machine.FindFile(path)->bytes;
    }
    return files;
}

Outcome CTrial::Run(const Files* wanted)
{
    if (m_scenario.isRunning) {
        Start();
        m_machine.RunFor(kMinuteMs);
    }
    m_outcome.before = DiskFiles();
    m_season = Season::kScenario;
    m_requests = 0;
    m_memory.emplace(&TakesAllocation);
    m_isOn = true;
    m_scenario.act(*this);
    m_isOn = false;
    m_memory.reset();
    m_outcome.after = DiskFiles();
    m_season = Season::kAfter;
    m_outcome.recovery = Recover(wanted);
    m_outcome.final = DiskFiles();
    m_outcome.keepsMutex = m_machine.IsMutexOwned(kUpdateMutexName);
    m_outcome.leftovers = TakeDown();
    return std::move(m_outcome);
}

bool CTrial::IsRight(const Files* wanted) const
{
    return wanted == nullptr ? m_requests > 0 : SameButForTime(DiskFiles(), *wanted);
}

Recovery CTrial::Recover(const Files* wanted)
{
    constexpr std::int64_t kLongestMs = 16 * kMinuteMs; // by which the default interval differs, and a pass
    Enable(true);
    m_requests = 0;
    if (m_machine.WindowExists(kWindowClassName)) {
        m_machine.RunFor(m_scenario.intervalMinutes * kMinuteMs + kLongestMs);
        if (IsRight(wanted)) {
            return kByItself;
        }
        RequestUpdate();
        m_machine.RunFor(kMinuteMs);
        if (IsRight(wanted)) {
            return kOnEvent;
        }
        for (const Recovery next : {kOnResume, kOnSuspend}) {
            if (next == kOnSuspend) {
                m_machine.NotifyPower(PBT_APMSUSPEND);
            }
            m_machine.NotifyPower(PBT_APMRESUMEAUTOMATIC);
            m_machine.RunFor(kSecondMs);
            RequestUpdate();
            m_machine.RunFor(kMinuteMs);
            if (IsRight(wanted)) {
                return next;
            }
        }
        Post(WM_QUIT);
        m_machine.RunFor(kMinuteMs);
    }
    Start();
    m_machine.RunFor(kMinuteMs);
    return IsRight(wanted) ? kOnRestart : kNever;
}

std::string CTrial::TakeDown()
{
    constexpr int kMostCopies = 3;
    for (int i = 0; i < kMostCopies && m_machine.WindowExists(kWindowClassName); ++i) {
        Post(WM_QUIT);
        m_machine.RunFor(kMinuteMs);
    }
    const std::pair<const char*, std::size_t> left[] = {
        {"windows", m_machine.WindowCount()},
        {"named objects", m_machine.NamedObjectCount()},
        {"HTTP handles", m_machine.OpenHttpHandleCount()},
        {"armed timers", m_machine.ArmedTimerCount()},
    };
    m_outcome.apartments = m_machine.ApartmentBalance();
    std::string text;
    for (const auto& [name, count] : left) {
        text += count == 0 ? "" : std::to_string(count) + " " + name + ", ";
    }
    g_dwLogLevel = 0;
    return text;
}

namespace {

void Begin(CTrial& trial) // of the program
{
    trial.Start();
    trial.Machine().RunFor(kMinuteMs);
}

void BeginBeforeBaseTime(CTrial& trial)
{
    trial.Enable(false);
    trial.Start();
    trial.Machine().RunFor(30 * kMinuteMs);
    trial.Enable(true);
    trial.Machine().RunFor(70 * kMinuteMs);
}

void UpdateOnEvent(CTrial& trial)
{
    trial.RequestUpdate();
    trial.Machine().RunFor(kMinuteMs);
}

void UpdateOnTimer(CTrial& trial) { trial.Machine().RunFor(31 * kMinuteMs); }

void LeaveSession(CTrial& trial, std::int64_t awayMs)
{
    trial.Machine().NotifySession(1, WTS_CONSOLE_DISCONNECT);
    trial.Machine().RunFor(awayMs);
    trial.Machine().NotifySession(1, WTS_CONSOLE_CONNECT);
    trial.Machine().RunFor(kMinuteMs);
}

void LeaveSessionInPass(CTrial& trial)
{
    trial.RequestUpdate();
    trial.Machine().RunFor(kSecondMs);
    LeaveSession(trial, kSecondMs);
}

void SuspendMachine(CTrial& trial)
{
    trial.Machine().NotifyPower(PBT_APMSUSPEND);
    trial.Machine().RunFor(kSecondMs);
    trial.Machine().PassSuspended(60 * kMinuteMs);
    trial.Machine().NotifyPower(PBT_APMRESUMEAUTOMATIC);
    trial.Machine().NotifyPower(PBT_APMRESUMESUSPEND);
    trial.Machine().RunFor(kMinuteMs);
}

void StartExit(CTrial& trial)
{
    trial.Start({L"/Exit"});
    trial.Machine().RunFor(kMinuteMs);
}

void StartExitInPass(CTrial& trial)
{
    trial.RequestUpdate();
    trial.Machine().RunFor(kSecondMs);
    StartExit(trial);
}

void CloseWindow(CTrial& trial)
{
    trial.Post(WM_CLOSE);
    trial.Machine().RunFor(kMinuteMs);
}

constexpr DWORD kFailures = kTraceErr | kTraceWar;
constexpr DWORD kLatencyMs = 70;

constexpr Scenario kScenarios[] = {
    {"start", "the start, on an empty disk, and the first pass", false, false, kByItself, kFailures, 13, 30, 0, 1,
     Begin},
    {"base", "the start before the base time with updating off, and the pass at that time", false, false, kByItself,
     kFailures, 8, 90, 0, 1, BeginBeforeBaseTime},
    {"event", "a pass on the update event", true, false, kByItself, kFailures, 13, 30, 0, 1, UpdateOnEvent},
    {"timer", "a pass on the timer", true, false, kByItself, kFailures, 13, 30, 0, 1, UpdateOnTimer},
    {"trace", "a pass on the update event with the whole trace, each 7th call", true, false, kByItself, kWholeTrace, 13,
     30, 0, 7, UpdateOnEvent},
    {"exit", "a stop by a copy with /Exit", true, false, kOnRestart, kFailures, 13, 30, 0, 1, StartExit},
    {"exit-pass", "the same in a pass", true, true, kOnRestart, kFailures, 13, 30, kLatencyMs, 1, StartExitInPass},
    {"close", "a stop by a message to the window", true, false, kOnRestart, kFailures, 13, 30, 0, 1, CloseWindow},
    {"console", "the session is left and entered", true, false, kByItself, kFailures, 13, 30, 0, 1,
     [](CTrial& trial) { LeaveSession(trial, kSecondMs); }},
    {"leave", "the same in a pass", true, true, kByItself, kFailures, 13, 30, kLatencyMs, 1, LeaveSessionInPass},
    {"power", "suspend and resume", true, false, kByItself, kFailures, 13, 30, 0, 1, SuspendMachine},
    {"second", "the start of a second copy", true, true, kByItself, kFailures, 13, 30, 0, 1, Begin},
};

} // namespace

std::span<const Scenario> Scenarios() { return kScenarios; }

Outcome RunTrial(const Scenario& scenario, const Fault& fault, const Files* wanted, bool printsTrace)
{
    return CTrial(scenario, fault, printsTrace).Run(wanted);
}

} // namespace ladder
