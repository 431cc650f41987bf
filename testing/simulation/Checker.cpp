#include "testing/simulation/Checker.h"

#include "platform/Files.h"
#include "platform/Text.h"
#include "platform/Thread.h"

#include <algorithm>
#include <cstring>

namespace simulation {

using platform::Hive;
using platform::sim::Call;
using testing_support::HttpAnswer;
using testing_support::HttpExchange;

namespace {

constexpr wchar_t kMainKey[] = L"Software\\Halvex\\AmporaSrv";
constexpr wchar_t kSiteKey[] = L"Software\\Halvex\\AmporaSrv\\site\\";
constexpr wchar_t kUpdateMutex[] = L"Global\\AmporaSrvUpdateMutex";
constexpr wchar_t kUpdateEvent[] = L"AmporaSrvUpdateEvent";
constexpr int kMain = 0; // as a site number: the main key

constexpr std::int64_t kHalfDayMs = 12 * kHourMs;
constexpr std::int64_t kStopMs = 100;  // how long a stop on leaving waits for the worker
constexpr std::int64_t kQuitMs = 1000; // and on quitting
constexpr std::int64_t kRestMs = 1000; // after a failed wait for the mutex

// The site that a key is of; kMain for the main key, -1 for any other.
int SiteOf(const CString& keyPath)
{
    if (keyPath == kMainKey) {
        return kMain;
    }
    return keyPath.starts_with(kSiteKey) ? static_cast<int>(std::stol(keyPath.substr(std::size(kSiteKey) - 1))) : -1;
}

std::optional<DWORD> NumberOf(const platform::SettingsValue* value)
{
    if (value == nullptr || value->type != REG_DWORD || value->data.size() != sizeof(DWORD)) {
        return std::nullopt;
    }
    DWORD number = 0;
    std::memcpy(&number, value->data.data(), sizeof(number));
    return number;
}

template <class Value>
void Append(std::vector<BYTE>& bytes, const Value& value)
{
    const auto* first = reinterpret_cast<const BYTE*>(&value); // NOLINT: bytes are what is compared
    bytes.insert(bytes.end(), first, first + sizeof(value));
}

// Text that is the same on every system.
std::string Portable(const CString& text)
{
    std::string bytes = platform::EncodeUtf8(text);
    std::replace(bytes.begin(), bytes.end(), '\\', '/');
    return bytes;
}

// A whole number that stands for bytes in the log.
std::string HashOf(const std::vector<BYTE>& bytes)
{
    std::uint64_t hash = 0xCBF29CE484222325;
    for (const BYTE byte : bytes) {
        hash = (hash ^ byte) * 0x100000001B3;
    }
    return std::to_string(hash);
}

} // namespace

CString DataFilePath(const Company& company, const Kind& kind)
{
    const CString separator = platform::kPathSeparator;
    return L"C:" + separator + L"ProgramData" + separator + L"AmporaSrv" + separator +
           platform::FormatText(L"%s_%08X.dat", platform::DecodeUtf8(company.word), kind.code);
}

CChecker::CChecker(const platform::sim::CMachine& machine, CRunLog& log, CZone zone, UtcMs utcNow, Answerer answer)
    : m_machine(machine), m_log(log), m_zone(std::move(zone)), m_utcAtStart(utcNow - machine.ElapsedMs()),
      m_answer(std::move(answer))
{
}

void CChecker::Violate(const std::string& text)
{
    if (!m_violation) {
        m_violation = Violation{Now(), text};
        Note("VIOLATION " + text);
    }
}

void CChecker::Note(const std::string& line) { m_log.Add(Now(), line); }

// --- What the simulation does

void CChecker::OnProgramStarted(DWORD processId, unsigned session)
{
    Program& program = m_programs[processId];
    program.processId = processId;
    program.session = session;
    program.mainThread = m_firstThreads.at(processId);
    program.orders.push_back({Order::What::kStart, Now()});
    Note("program " + std::to_string(processId) + " of session " + std::to_string(session));
}

void CChecker::OnShortCopyStarted(DWORD processId, unsigned session)
{
    m_shortCopies[processId] = session;
    Note("short copy " + std::to_string(processId) + " of session " + std::to_string(session));
}

void CChecker::OnEntryReturns(DWORD processId)
{
    if (m_violation) {
        return;
    }
    Note("process " + std::to_string(processId) + " returns");
    if (m_shortCopies.erase(processId) > 0) {
        return;
    }
    const auto found = m_programs.find(processId);
    if (found == m_programs.end()) {
        return;
    }
    Program& program = found->second;
    SkipIdleOrders(program);
    if (!program.isQuitting || program.orders.front().what != Order::What::kQuit) {
        Violate("program " + std::to_string(processId) + " ends without being told to");
    } else if (program.isStarted) {
        Violate("program " + std::to_string(processId) + " ends without stopping its worker");
    }
    program.hasReturned = true;
    program.orders.clear();
}

void CChecker::OnStartPosted(DWORD processId)
{
    m_programs.at(processId).orders.push_back({Order::What::kStart, Now()});
}

void CChecker::OnStopPosted(DWORD processId) { m_programs.at(processId).orders.push_back({Order::What::kStop, Now()}); }

void CChecker::OnQuitPosted(DWORD processId)
{
    Program& program = m_programs.at(processId);
    program.orders.push_back({Order::What::kQuit, Now()});
    program.isQuitting = true;
}

void CChecker::OnClockMoved(std::int64_t byMs)
{
    m_utcAtStart += byMs;
    m_clockMovedMs = Now();
}

void CChecker::OnManualUpdate(unsigned session)
{
    if (m_violation) {
        return;
    }
    for (auto& [thread, worker] : m_workers) {
        if (worker.session != session || worker.mustEndBy) {
            continue;
        }
        if (worker.at == At::kWait) {
            worker.isWoken = true;
            worker.sinceMs = Now();
            return;
        }
        // Its wait for the mutex, or its rest, uses the event up.
        if (worker.at == At::kTurn || (worker.at == At::kPass && !worker.pass.hasBegun)) {
            return;
        }
    }
    m_eventIsSet[session] = m_machine.NamedObjectExists(kUpdateEvent, session);
}

void CChecker::OnFault(Call call)
{
    if (m_violation) {
        return;
    }
    const Caller caller{platform::CurrentProcessIdentifier(), 0, platform::CurrentThreadIdentifier()};
    Note("fault " + std::to_string(static_cast<int>(call)) + " in thread " + std::to_string(caller.threadId));
    if (Program* program = ProgramOfMain(caller)) {
        if (call == Call::kRegisterSessionNotices) {
            program->getsSessionNotices = false;
        } else if (call == Call::kCreateNamedMutex || call == Call::kCreateNamedMutexThrows ||
                   call == Call::kCreateNamedEvent || call == Call::kStartThread) {
            FailStart(*program);
        }
        return;
    }
    Worker* worker = WorkerOf(caller);
    if (worker == nullptr) {
        return;
    }
    Settle(*worker);
    bool& eventIsSet = m_eventIsSet[worker->session];
    const bool isWaiting = worker->at == At::kWait;
    switch (call) {
    case Call::kMakeTimer:
        worker->hasTimer = false;
        break;
    case Call::kArmTimer:
        if (isWaiting && worker->isAtBase) {
            // The interval timer is tried at once; the wait has not begun.
            eventIsSet = eventIsSet || worker->tookPending;
            MoveTo(*worker, At::kInterval);
        } else if (isWaiting) {
            worker->due = std::move(worker->oldDue);
            worker->dueIsOld = true;
        }
        break;
    case Call::kDisarmTimer:
        worker->disarmFailed = isWaiting && worker->isWoken;
        break;
    case Call::kWaitForOne:
        if (isWaiting) {
            eventIsSet = eventIsSet || worker->tookPending;
            worker->mustEndBy = Now();
        } else if (m_mutexOwner == 0 || m_mutexOwner == worker->threadId) {
            eventIsSet = eventIsSet || worker->tookPending; // the rest is left out
        }
        break;
    case Call::kWaitForAny:
        worker->tookPending = std::exchange(eventIsSet, false);
        worker->pausesUntilMs = Now() + kRestMs;
        break;
    case Call::kOpenForReplace:
        if (worker->at == At::kPass && worker->pass.step == Step::kWrite) {
            EndKind(*worker);
        }
        break;
    case Call::kWriteFileBytes:
        worker->writeFailed = true;
        break;
    default:
        break;
    }
}

// --- What it is asked

DWORD CChecker::RunningCopy(unsigned session) const
{
    for (const auto& [processId, program] : m_programs) {
        if (program.session == session && !program.isQuitting && !program.hasReturned) {
            return processId;
        }
    }
    return 0;
}

bool CChecker::HasCopy(unsigned session) const
{
    return std::any_of(m_programs.begin(), m_programs.end(),
                       [&](const auto& entry) { return entry.second.session == session && !entry.second.hasReturned; });
}

bool CChecker::GetsSessionNotices(DWORD processId) const { return m_programs.at(processId).getsSessionNotices; }

bool CChecker::IsMainThread(const Caller& caller) const
{
    const auto found = m_programs.find(caller.processId);
    return found != m_programs.end() && found->second.mainThread == caller.threadId;
}

void CChecker::CheckPassSince(unsigned session, unsigned passes)
{
    if (m_lastPasses[session] <= passes) {
        Violate("session " + std::to_string(session) + " has made no pass after the faults");
    }
}

void CChecker::CheckDeadlines()
{
    if (m_violation) {
        return;
    }
    for (const auto& [processId, session] : m_shortCopies) {
        Violate("second copy " + std::to_string(processId) + " does not end at once");
    }
    for (auto& [processId, program] : m_programs) {
        CheckProgram(program);
    }
    for (auto& [thread, worker] : m_workers) {
        Settle(worker);
        CheckWorker(worker);
    }
}

void CChecker::CheckProgram(Program& program)
{
    SkipIdleOrders(program);
    if (program.orders.empty()) {
        return;
    }
    const Order& order = program.orders.front();
    const std::string name = "program " + std::to_string(program.processId);
    const std::int64_t from = std::max(order.postedMs, program.freeMs);
    if (order.what == Order::What::kQuit) {
        if (Now() >= from + kQuitMs) {
            Violate(name + " does not end although it was told to");
        }
    } else if (Now() >= from) {
        Violate(name +
                (order.what == Order::What::kStart ? " does not start its worker" : " does not stop its worker"));
    }
}

void CChecker::CheckWorker(const Worker& worker)
{
    const std::string name = NameOf(worker);
    if (worker.mustEndBy) {
        if (Now() >= *worker.mustEndBy) {
            Violate(name + " does not end");
        }
        return;
    }
    switch (worker.at) {
    case At::kStart:
        Violate(name + " neither updates nor waits after its start");
        break;
    case At::kBase:
    case At::kInterval:
        Violate(name + " does not arm its timer");
        break;
    case At::kTurn:
        if (m_mutexOwner == 0 && Now() >= worker.pausesUntilMs) {
            Violate(name + " does not take the free update mutex");
        }
        break;
    case At::kPass:
        if (worker.pass.step != Step::kDownload && Now() >= worker.pausesUntilMs) {
            Violate(name + " stands still in its pass");
        }
        break;
    case At::kWait:
        if (worker.isWoken) {
            Violate(name + " does not heed the update event");
        } else if (worker.due && worker.due->IsOverdue(Now(), UtcNow())) {
            Violate(name + " leaves out a pass that is due");
        }
        break;
    }
}

void CChecker::CheckLeftovers()
{
    if (m_violation) {
        return;
    }
    for (const auto& [processId, program] : m_programs) {
        if (!program.hasReturned || !m_machine.ExitCodeOf(processId)) {
            Violate("program " + std::to_string(processId) + " is left");
        }
    }
    const auto check = [this](std::size_t count, const char* what) {
        if (count > 0) {
            Violate(std::to_string(count) + " " + what + " left");
        }
    };
    check(m_workers.size(), "worker threads are");
    check(m_machine.WindowCount(), "windows are");
    check(m_machine.NamedObjectCount(), "named objects are");
    check(m_machine.OpenHttpHandleCount(), "HTTP handles are");
    check(m_machine.ArmedTimerCount(), "armed timers are");
    for (const CString& path : m_machine.FilePaths()) {
        if (!m_files.contains(path)) {
            Violate("file " + Portable(path) + " is none of the program's");
        } else if (m_machine.FindFile(path)->bytes != m_files.at(path).bytes) {
            Violate("file " + Portable(path) + " does not hold what was written last");
        }
    }
}

void CChecker::CheckConverged(unsigned firstPass)
{
    for (const Company& company : kCompanies) {
        for (const Kind& kind : kKinds) {
            if ((company.mask & kind.code) == 0) {
                continue;
            }
            const CString path = DataFilePath(company, kind);
            const auto found = m_files.find(path);
            if (found == m_files.end() || !found->second.isWhole || found->second.pass < firstPass) {
                Violate("file " + Portable(path) + " is not right again after the faults");
            }
        }
    }
}

// --- Programs

CChecker::Program* CChecker::ProgramOfMain(const Caller& caller)
{
    return IsMainThread(caller) ? &m_programs.at(caller.processId) : nullptr;
}

void CChecker::SkipIdleOrders(Program& program)
{
    std::deque<Order>& orders = program.orders;
    while (!orders.empty() && ((orders.front().what == Order::What::kStart && program.isStarted) ||
                               (orders.front().what == Order::What::kStop && !program.isStarted))) {
        orders.pop_front();
    }
}

bool CChecker::TakeOrder(Program& program, Order::What what)
{
    SkipIdleOrders(program);
    if (program.orders.empty() || program.orders.front().what != what) {
        return false;
    }
    program.orders.pop_front();
    return true;
}

void CChecker::FailStart(Program& program)
{
    if (!TakeOrder(program, Order::What::kStart)) {
        Violate("program " + std::to_string(program.processId) + " makes named objects unasked");
    }
}

void CChecker::OnThreadStarted(const Caller& starter, const Caller& started)
{
    if (m_violation) {
        return;
    }
    if (starter.processId != started.processId) {
        m_firstThreads[started.processId] = started.threadId; // of which kind the process is, is said right after this
        return;
    }
    Program* program = ProgramOfMain(starter);
    if (program == nullptr || program->hasReturned || !TakeOrder(*program, Order::What::kStart)) {
        Violate("process " + std::to_string(starter.processId) + " starts a worker unasked");
        return;
    }
    Note("worker " + std::to_string(started.threadId) + " of program " + std::to_string(program->processId));
    program->isStarted = true;
    program->worker = started.threadId;
    Worker& worker = m_workers[started.threadId];
    worker.threadId = started.threadId;
    worker.processId = program->processId;
    worker.session = program->session;
    worker.sinceMs = Now();
}

void CChecker::OnThreadEnded(const Caller& thread)
{
    if (m_violation) {
        return;
    }
    if (Worker* worker = WorkerOf(thread)) {
        EndWorker(*worker);
    }
}

void CChecker::OnEventPulsed(unsigned session, const CString& name, const Caller& caller)
{
    if (m_violation) {
        return;
    }
    Program* program = ProgramOfMain(caller);
    if (name != kUpdateEvent || program == nullptr) {
        Violate("process " + std::to_string(caller.processId) + " pulses an event");
        return;
    }
    SkipIdleOrders(*program);
    const bool quits = !program->orders.empty() && program->orders.front().what == Order::What::kQuit;
    if (!quits && !TakeOrder(*program, Order::What::kStop)) {
        Violate("program " + std::to_string(program->processId) + " stops its worker unasked");
    }
    m_eventIsSet[session] = false;
    program->isStarted = false;
    program->freeMs = Now() + kStopMs;
    StopWorker(*program);
}

void CChecker::OnObjectMade(unsigned session, const CString& name)
{
    // What had the name before is gone, whoever owned it.
    if (name == kUpdateEvent) {
        m_eventIsSet[session] = false;
    } else if (name == kUpdateMutex) {
        m_mutexOwner = 0;
    }
}

void CChecker::OnDebugLine(const Caller& /*caller*/, const CString& text)
{
    std::string line = Portable(text);
    line.pop_back(); // its line feed
    Note(line);
}

// --- Workers

CChecker::Worker* CChecker::WorkerOf(const Caller& caller)
{
    const auto found = m_workers.find(caller.threadId);
    return found == m_workers.end() ? nullptr : &found->second;
}

std::string CChecker::NameOf(const Worker& worker)
{
    return "worker " + std::to_string(worker.threadId) + " of program " + std::to_string(worker.processId);
}

void CChecker::MoveTo(Worker& worker, At at)
{
    worker.at = at;
    worker.sinceMs = Now();
}

void CChecker::StopWorker(Program& program)
{
    const auto found = m_workers.find(program.worker);
    if (found == m_workers.end()) {
        return;
    }
    Worker& worker = found->second;
    Settle(worker);
    const bool isDownloading = worker.at == At::kPass && worker.pass.step == Step::kDownload;
    Note(NameOf(worker) + (isDownloading ? " is told to end in a download" : " is told to end"));
    worker.mustEndBy = isDownloading ? worker.pass.downloadEndsMs : Now();
}

void CChecker::EndWorker(Worker& worker)
{
    Note(NameOf(worker) + " ends");
    if (!worker.mustEndBy) {
        Violate(NameOf(worker) + " ends without being told to");
    } else if (Now() > *worker.mustEndBy) {
        Violate(NameOf(worker) + " ends too late");
    }
    if (worker.isInitial) {
        m_programs.at(worker.processId).initialUpdateDone = true;
    }
    m_workers.erase(worker.threadId);
}

void CChecker::OnSettingQueried(const Caller& caller, Hive hive, const CString& keyPath, const CString& valueName,
                                const platform::SettingsValue* value)
{
    Worker* worker = WorkerOf(caller);
    const int site = SiteOf(keyPath);
    if (m_violation || worker == nullptr || valueName == L"ApiHost") {
        return;
    }
    Settle(*worker);
    const std::optional<DWORD> number = NumberOf(value);
    const bool isMasterSwitch = site == kMain && valueName == L"Enable";
    if (hive == Hive::kPerUser) {
        if (isMasterSwitch) {
            Violate(NameOf(*worker) + " looks for the master switch in the user's settings");
        }
        if (site != kMain && valueName == L"Enable") {
            BeginStep(*worker, site);
        }
        worker->lookup = {site, valueName};
        if (!number) {
            return;
        }
    } else if (!isMasterSwitch && worker->lookup != std::pair(site, valueName)) {
        Violate(NameOf(*worker) + " passes over the user's settings");
    }
    worker->lookup = {-1, {}};
    OnValue(*worker, site, valueName, number);
}

void CChecker::OnValue(Worker& worker, int site, const CString& name, std::optional<DWORD> value)
{
    if (m_violation) {
        return;
    }
    if (site != kMain) {
        Pass& pass = worker.pass;
        if (worker.at != At::kPass || pass.company == std::size(kCompanies)) {
            Violate(NameOf(worker) + " looks for a site out of turn");
            return;
        }
        if (name == L"Enable") {
            if (value && *value == 0) {
                OnUrlSettled(worker, false);
            }
        } else {
            const DWORD mask = value.value_or(kCompanies[pass.company].mask);
            OnUrlSettled(worker, (mask & kKinds[pass.kind].code) != 0);
        }
        return;
    }
    if (name == L"Enable") {
        OnDecision(worker, value.value_or(0) != 0);
        return;
    }
    if (value) {
        worker.values[platform::EncodeUtf8(name)] = static_cast<LONG>(*value);
    } else {
        worker.values.erase(platform::EncodeUtf8(name));
    }
    if (name == L"FixedClockMax") {
        OnBaseSettings(worker);
    } else if (name == L"IntervalMax") {
        OnIntervalSettings(worker);
    }
}

void CChecker::OnDecision(Worker& worker, bool isEnabled)
{
    Program& program = m_programs.at(worker.processId);
    Note(NameOf(worker) + (isEnabled ? " begins a pass" : " skips a pass"));
    if (worker.mustEndBy) {
        Violate(NameOf(worker) + " goes on although it was told to end");
    }
    if (worker.at == At::kStart) {
        if (program.initialUpdateDone || Now() > worker.sinceMs) {
            Violate(NameOf(worker) + " makes an initial update that is none");
        }
        worker.isInitial = true;
    } else if (worker.at == At::kWait && worker.isWoken) {
        if (Now() > worker.sinceMs) {
            Violate(NameOf(worker) + " heeds the update event too late");
        }
        worker.oldDue = worker.disarmFailed ? std::move(worker.due) : std::nullopt;
    } else if (worker.at == At::kWait && worker.due) {
        const bool mayBeLate =
            worker.dueIsOld || (worker.due->IsByClock() && (m_clockMovedMs == Now() || worker.sinceMs == Now()));
        if (!worker.due->MayFallDueAt(Now(), UtcNow(), mayBeLate)) {
            Violate(NameOf(worker) + " makes a pass that is not due");
        }
        worker.oldDue.reset();
    } else {
        Violate(NameOf(worker) + " makes a pass that nobody asked for");
    }
    worker.disarmFailed = false;
    if (isEnabled) {
        worker.pass = {};
        MoveTo(worker, At::kTurn);
        if (m_mutexOwner != 0) {
            // The wait for the mutex uses up an event that was set before.
            worker.tookPending = std::exchange(m_eventIsSet[worker.session], false);
        }
        return;
    }
    const bool isInitial = std::exchange(worker.isInitial, false);
    program.initialUpdateDone = program.initialUpdateDone || isInitial;
    MoveTo(worker, isInitial ? At::kBase : At::kInterval);
}

void CChecker::OnBaseSettings(Worker& worker)
{
    if (worker.at != At::kBase || Now() > worker.sinceMs) {
        Violate(NameOf(worker) + " looks for the base time out of turn");
    }
    const auto valueOr = [&](const char* name, std::int64_t other) {
        const auto found = worker.values.find(name);
        return found == worker.values.end() ? other : found->second;
    };
    const std::int64_t clock = valueOr("FixedClock", 9);
    const Minutes delay = RandomMinutesBetween(valueOr("FixedClockMin", 0), valueOr("FixedClockMax", 30));
    if (CalendarOf(m_zone.ToLocal(UtcNow())).wHour >= clock) {
        MoveTo(worker, At::kInterval);
        return;
    }
    std::optional<CDue> due = CDue::AtBaseTime(m_zone, UtcNow(), clock, delay);
    if (!due) {
        // The conversion's exception ends the worker.
        Note(NameOf(worker) + " finds no such hour");
        worker.mustEndBy = Now();
    } else if (!worker.hasTimer) {
        MoveTo(worker, At::kInterval);
    } else {
        Note(NameOf(worker) + " waits for the base time");
        BeginWait(worker, std::move(due));
        worker.isAtBase = true;
    }
}

void CChecker::OnIntervalSettings(Worker& worker)
{
    const bool isRestart = worker.at == At::kStart && m_programs.at(worker.processId).initialUpdateDone;
    if ((worker.at != At::kInterval && !isRestart) || Now() > worker.sinceMs || worker.mustEndBy) {
        Violate(NameOf(worker) + " looks for the interval out of turn");
    }
    const auto valueOr = [&](const char* name, std::int64_t other) {
        const auto found = worker.values.find(name);
        return found == worker.values.end() ? other : found->second;
    };
    const Minutes random = RandomMinutesBetween(valueOr("IntervalMin", -15), valueOr("IntervalMax", 15));
    std::optional<CDue> due;
    if (worker.hasTimer) {
        due = CDue::AfterInterval(Now(), valueOr("Interval", 30), random);
    }
    BeginWait(worker, std::move(due));
    worker.isAtBase = false;
}

void CChecker::BeginWait(Worker& worker, std::optional<CDue> due)
{
    MoveTo(worker, At::kWait);
    worker.due = std::move(due);
    worker.dueIsOld = false;
    worker.isWoken = std::exchange(m_eventIsSet[worker.session], false);
    worker.tookPending = worker.isWoken;
}

// --- Passes

void CChecker::OnMutexAcquired(unsigned /*session*/, const CString& name, const Caller& owner)
{
    if (m_violation || name != kUpdateMutex) {
        return;
    }
    if (m_mutexOwner != 0) {
        Violate("two threads own the update mutex");
    }
    m_mutexOwner = owner.threadId;
    Worker* worker = WorkerOf(owner);
    if (worker == nullptr) {
        return;
    }
    Note(NameOf(*worker) + " has the mutex");
    if (worker->at != At::kTurn) {
        Violate(NameOf(*worker) + " takes the update mutex out of turn");
    }
    MoveTo(*worker, At::kPass);
}

void CChecker::OnMutexReleased(unsigned /*session*/, const CString& name, const Caller& owner, bool abandoned)
{
    if (m_violation || name != kUpdateMutex) {
        return;
    }
    m_mutexOwner = 0;
    Worker* worker = WorkerOf(owner);
    if (worker == nullptr) {
        return;
    }
    Note(NameOf(*worker) + (abandoned ? " abandons the mutex" : " gives the mutex back"));
    Settle(*worker);
    if (worker->at != At::kPass) {
        Violate(NameOf(*worker) + " gives back a mutex that it had no need of");
    } else if (!worker->mustEndBy) {
        EndPass(*worker);
        if (abandoned) {
            Violate(NameOf(*worker) + " abandons the update mutex");
        }
    }
}

void CChecker::EndPass(Worker& worker)
{
    const Pass& pass = worker.pass;
    if (pass.company != std::size(kCompanies) || pass.step != Step::kBetween) {
        Violate(NameOf(worker) + " ends its pass early");
    }
    ++m_passes;
    m_lastPasses[worker.session] = m_passes;
    if (std::exchange(worker.isInitial, false)) {
        m_programs.at(worker.processId).initialUpdateDone = true;
    }
    MoveTo(worker, At::kInterval);
}

void CChecker::BeginPass(Worker& worker)
{
    Pass& pass = worker.pass;
    pass.hasBegun = true;
    // Through the local clock, whole seconds.
    const LocalMs local = m_zone.ToLocal(UtcNow()) / kSecondMs * kSecondMs;
    const UtcMs now = m_zone.ToUtc(local);
    pass.lower = m_zone.ToLocal(now - kHalfDayMs);
    pass.upper = m_zone.ToLocal(now + kHalfDayMs);
    const UtcMs last = m_zone.ToUtc(pass.upper);
    for (UtcMs day = m_zone.ToUtc(pass.lower); day <= last; day += kDayMs) {
        pass.days.push_back(day);
    }
}

void CChecker::Settle(Worker& worker)
{
    Pass& pass = worker.pass;
    if (worker.at == At::kPass && pass.step == Step::kDownload && Now() >= pass.downloadEndsMs && !worker.mustEndBy) {
        if (Now() > pass.downloadEndsMs) {
            Violate(NameOf(worker) + " stands still after a download");
        }
        EndDay(worker, pass.reply.records);
    }
}

void CChecker::BeginStep(Worker& worker, int site)
{
    Pass& pass = worker.pass;
    if (worker.at != At::kPass) {
        Violate(NameOf(worker) + " looks for a site outside a pass");
        return;
    }
    if (worker.mustEndBy) {
        Violate(NameOf(worker) + " goes on with its pass although it was told to end");
    }
    if (!pass.hasBegun) {
        BeginPass(worker);
    }
    if (pass.step != Step::kBetween) {
        Violate(NameOf(worker) + (pass.step == Step::kRequest ? " leaves out a request" : " leaves out a file"));
    } else if (pass.company == std::size(kCompanies) || kCompanies[pass.company].site != site) {
        Violate(NameOf(worker) + " looks for a site out of turn");
    }
    pass.company = std::min(pass.company, std::size(kCompanies) - 1); // only after a violation
}

void CChecker::OnUrlSettled(Worker& worker, bool isWanted)
{
    if (isWanted && m_isConnected) {
        worker.pass.step = Step::kRequest;
    } else {
        EndDay(worker, std::nullopt);
    }
}

HttpAnswer CChecker::Answer(const HttpExchange& exchange)
{
    if (m_violation) {
        return {};
    }
    const Caller caller{exchange.processId, exchange.session, platform::CurrentThreadIdentifier()};
    Worker* worker = WorkerOf(caller);
    ++m_requests;
    if (worker == nullptr || worker->at != At::kPass || m_mutexOwner != caller.threadId) {
        Violate("thread " + std::to_string(caller.threadId) + " sends a request without the update mutex");
        return {};
    }
    Pass& pass = worker->pass;
    Settle(*worker);
    if (worker->mustEndBy) {
        Violate(NameOf(*worker) + " sends a request although it was told to end");
        return {};
    }
    if (pass.step != Step::kRequest) {
        Violate(NameOf(*worker) + " sends a request that is not wanted: " + exchange.target);
        return {};
    }
    const Kind& kind = kKinds[pass.kind];
    const SYSTEMTIME day = CalendarOf(m_zone.ToLocal(pass.days.at(pass.day)));
    const std::string target = TargetOf(kCompanies[pass.company], kind, day);
    if (exchange.target != target) {
        Violate(NameOf(*worker) + " asks for " + exchange.target + ", not for " + target);
    }
    pass.reply = m_answer(kind, day, m_zone);
    pass.downloadEndsMs = Now() + pass.reply.lastsMs;
    pass.step = Step::kDownload;
    Note(NameOf(*worker) + " gets " + exchange.target + ": " + pass.reply.name + " in " +
         std::to_string(pass.reply.lastsMs) + " ms");
    return pass.reply.answer;
}

void CChecker::EndDay(Worker& worker, const std::optional<Records>& records)
{
    Pass& pass = worker.pass;
    if (records) {
        if (!pass.merged) {
            pass.merged.emplace();
        }
        pass.merged->insert(pass.merged->end(), records->begin(), records->end());
    }
    pass.step = Step::kBetween;
    if (++pass.day < pass.days.size()) {
        return;
    }
    if (pass.merged && PathOf(pass) != m_heldPath) {
        pass.step = Step::kWrite;
    } else {
        EndKind(worker);
    }
}

void CChecker::EndKind(Worker& worker)
{
    Pass& pass = worker.pass;
    pass.merged.reset();
    pass.step = Step::kBetween;
    pass.day = 0;
    if (++pass.kind == std::size(kKinds)) {
        pass.kind = 0;
        ++pass.company;
    }
}

CString CChecker::PathOf(const Pass& pass) const { return DataFilePath(kCompanies[pass.company], kKinds[pass.kind]); }

std::vector<BYTE> CChecker::FileOf(const Pass& pass) const
{
    const Kind& kind = kKinds[pass.kind];
    std::vector<BYTE> records;
    DWORD count = 0;
    for (const Record& record : *pass.merged) {
        if (kind.isTrimmed && (LocalOf(record.end) < pass.lower || LocalOf(record.start) > pass.upper)) {
            continue;
        }
        ++count;
        Append(records, record.value);
        Append(records, record.start);
        Append(records, record.end);
    }
    std::vector<BYTE> bytes;
    Append(bytes, DWORD{0x00010000});
    Append(bytes, kind.code);
    Append(bytes, count);
    Append(bytes, DWORD{0});
    Append(bytes, CalendarOf(m_zone.ToLocal(UtcNow())));
    bytes.insert(bytes.end(), records.begin(), records.end());
    return bytes;
}

void CChecker::OnFileOpened(const Caller& caller, const CString& path)
{
    if (m_violation) {
        return;
    }
    Worker* worker = WorkerOf(caller);
    if (worker == nullptr || m_mutexOwner != caller.threadId) {
        Violate("thread " + std::to_string(caller.threadId) + " writes a file without the update mutex");
        return;
    }
    Settle(*worker);
    Pass& pass = worker->pass;
    if (pass.step != Step::kWrite || path != PathOf(pass)) {
        Violate(NameOf(*worker) + " writes " + Portable(path) + ", for which there is no reason");
        return;
    }
    pass.expected = FileOf(pass);
    pass.step = Step::kWriting;
}

void CChecker::OnFileClosed(const Caller& caller, const CString& path, const platform::sim::SimFile& file)
{
    Worker* worker = WorkerOf(caller);
    if (m_violation || worker == nullptr || worker->pass.step != Step::kWriting) {
        return;
    }
    const std::vector<BYTE>& expected = worker->pass.expected;
    const bool isWhole = file.bytes == expected;
    const bool isPart =
        file.bytes.size() < expected.size() && std::equal(file.bytes.begin(), file.bytes.end(), expected.begin());
    if (!isWhole && !(isPart && (worker->writeFailed || m_diskIsLimited))) {
        Violate(NameOf(*worker) + " writes something else into " + Portable(path) + " than it was told");
    }
    Note("file " + Portable(path) + " " + HashOf(file.bytes));
    m_files[path] = {file.bytes, isWhole, m_passes};
    worker->writeFailed = false;
    EndKind(*worker);
}

} // namespace simulation
