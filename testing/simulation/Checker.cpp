#include "testing/simulation/Checker.h"

#include "platform/sim/Faults.h"
#include "platform/Text.h"
#include "platform/Thread.h"

#include <algorithm>
#include <cstring>

namespace simulation {

using platform::Hive;
using platform::sim::Call;
using testing_support::HttpAnswer;
using testing_support::HttpExchange;
using At = WorkerState::At;
using Step = PassState::Step;
using What = Order::What;

namespace {

constexpr wchar_t kMainKey[] = L"Software\\Halvex\\AmporaSrv";
constexpr wchar_t kSiteKey[] = L"Software\\Halvex\\AmporaSrv\\site\\";
constexpr wchar_t kUpdateMutex[] = L"Global\\AmporaSrvUpdateMutex";
constexpr wchar_t kUpdateEvent[] = L"AmporaSrvUpdateEvent";

// The site that a key is of; kMainKeySite for the main key, -1 for any other.
int SiteOf(const CString& keyPath)
{
    if (keyPath == kMainKey) {
        return kMainKeySite;
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

// Text that is the same on every system.
std::string Portable(const CString& text)
{
    std::string bytes = platform::EncodeUtf8(text);
    std::replace(bytes.begin(), bytes.end(), '\\', '/');
    return bytes;
}

} // namespace

CChecker::CChecker(const platform::sim::CMachine& machine, CRunLog& log, CZone zone, UtcMs utcNow, Answerer answer)
    : m_log(log), m_zone(std::move(zone)), m_answer(std::move(answer)), m_state(machine, utcNow)
{
}

bool CChecker::Check(const Seen& seen)
{
    if (!m_violation) {
        m_violation = FindViolation(seen);
        if (m_violation) {
            Note("VIOLATION " + m_violation->text);
        }
    }
    return !m_violation;
}

// --- What the simulation does

void CChecker::OnProgramStarted(DWORD processId, unsigned session)
{
    ProgramState& program = m_state.programs[processId];
    program.processId = processId;
    program.session = session;
    OnOrder(processId, What::kStart);
    Note(program.Name() + " of session " + std::to_string(session));
}

void CChecker::OnShortCopyStarted(DWORD processId, unsigned session)
{
    m_state.shortCopies.insert(processId);
    Note("short copy " + std::to_string(processId) + " of session " + std::to_string(session));
}

void CChecker::OnEntryReturns(DWORD processId)
{
    if (m_violation) {
        return;
    }
    Note("process " + std::to_string(processId) + " returns");
    if (m_state.shortCopies.erase(processId) > 0 || !IsProgram(processId)) {
        return;
    }
    ProgramState& program = m_state.programs.at(processId);
    program.DropIdleOrders();
    Check({m_state, Moment::kReturns, &program});
    program.hasReturned = true;
    program.orders.clear();
}

void CChecker::OnOrder(DWORD processId, What what)
{
    ProgramState& program = m_state.programs.at(processId);
    program.orders.push_back({what, m_state.Now()});
    program.isQuitting = program.isQuitting || what == What::kQuit;
}

void CChecker::OnClockMoved(std::int64_t byMs)
{
    m_state.utcAtStart += byMs;
    m_state.clockMovedMs = m_state.Now();
}

void CChecker::OnManualUpdate(unsigned session)
{
    for (auto& [thread, worker] : m_state.workers) {
        if (worker.program->session != session || worker.mustEndBy) {
            continue;
        }
        if (worker.at == At::kWait) {
            worker.sinceMs = m_state.Now();
        } else if (worker.at == At::kTurn || (worker.at == At::kPass && !worker.pass.HasBegun())) {
            return; // its wait for the mutex, or its rest, uses the event up
        }
    }
    if (m_state.machine.NamedObjectExists(kUpdateEvent, session)) {
        m_state.setEvents.insert(session);
    }
}

void CChecker::OnFault(Call call)
{
    if (m_violation) {
        return;
    }
    const Caller caller{platform::CurrentProcessIdentifier(), 0, platform::CurrentThreadIdentifier()};
    Note(std::string("fault ") + platform::sim::NameOf(call) + " in thread " + std::to_string(caller.threadId));
    ProgramState* program = ProgramOfMain(caller);
    WorkerState* worker = WorkerOf(caller.threadId);
    if (program != nullptr && call == Call::kRegisterSessionNotices) {
        program->getsSessionNotices = false;
    } else if (program != nullptr && (call == Call::kCreateNamedMutex || call == Call::kCreateNamedMutexThrows ||
                                      call == Call::kCreateNamedEvent || call == Call::kStartThread)) {
        TakeOrder(Moment::kStarts, program);
    } else if (program != nullptr && call == Call::kPulseNamedEventMisses) {
        program->missesPulse = true;
    } else if (worker != nullptr) {
        OnWorkerFault(*worker, call);
    }
}

void CChecker::OnWorkerFault(WorkerState& worker, Call call)
{
    constexpr Call kOfSchedule[] = {Call::kMakeTimer, Call::kArmTimer, Call::kDisarmTimer, Call::kWaitForOne,
                                    Call::kWaitForAny};
    if (std::find(std::begin(kOfSchedule), std::end(kOfSchedule), call) != std::end(kOfSchedule)) {
        worker.hasFaultySchedule = true;
    } else if (call == Call::kOpenForReplace && worker.IsIn(Step::kWrite)) {
        worker.pass.EndKind();
    } else if (call == Call::kWriteFileBytes) {
        worker.writeFailed = true;
    }
}

HttpAnswer CChecker::Answer(const HttpExchange& exchange)
{
    ++m_requests;
    WorkerState* worker = WorkerOf(platform::CurrentThreadIdentifier());
    Seen seen = SeenOf(Moment::kRequests, worker);
    seen.target = exchange.target;
    if (!Check(seen)) {
        return {};
    }
    PassState& pass = worker->pass;
    pass.reply = m_answer(pass.KindInTurn(), pass.Day(m_zone), m_zone);
    pass.downloadEndsMs = m_state.Now() + pass.reply.lastsMs;
    pass.step = Step::kDownload;
    Note(worker->Name() + " gets " + exchange.target + ": " + pass.reply.name + " in " +
         std::to_string(pass.reply.lastsMs) + " ms");
    return pass.reply.answer;
}

// --- What it is asked

const ProgramState* CChecker::CopyOf(unsigned session) const
{
    const auto found = std::find_if(m_state.programs.begin(), m_state.programs.end(), [&](const auto& entry) {
        return entry.second.session == session && !entry.second.hasReturned;
    });
    return found == m_state.programs.end() ? nullptr : &found->second;
}

void CChecker::CheckDeadlines()
{
    Check({m_state, Moment::kIdle});
    for (auto& [processId, program] : m_state.programs) {
        program.DropIdleOrders();
        Check({m_state, Moment::kProgramIdle, &program});
    }
    for (auto& [thread, worker] : m_state.workers) {
        Settle(worker);
        if (worker.mustEndBy || !worker.hasFaultySchedule) {
            Check(SeenOf(worker.mustEndBy ? Moment::kStoppedIdle : Moment::kWorkerIdle, &worker));
        }
    }
}

void CChecker::CheckConverged(unsigned sessions, unsigned firstPass)
{
    m_state.sessions = sessions;
    m_state.convergesFrom = firstPass;
    Check({m_state, Moment::kConverged});
}

void CChecker::CheckLeftovers() { Check({m_state, Moment::kTakenDown}); }

// --- Programs

ProgramState* CChecker::ProgramOfMain(const Caller& caller)
{
    const auto found = m_state.programs.find(caller.processId);
    const bool isMain = found != m_state.programs.end() && !m_state.workers.contains(caller.threadId);
    return isMain ? &found->second : nullptr;
}

bool CChecker::TakeOrder(Moment moment, ProgramState* program)
{
    if (program != nullptr) {
        program->DropIdleOrders();
    }
    if (!Check({m_state, moment, program})) {
        return false;
    }
    if (!program->IsTold(What::kQuit)) { // which counts until it returns
        program->orders.pop_front();
    }
    return true;
}

void CChecker::OnThreadStarted(const Caller& starter, const Caller& started)
{
    if (starter.processId != started.processId) {
        return; // the first thread of a process
    }
    ProgramState* program = ProgramOfMain(starter);
    if (!TakeOrder(Moment::kStarts, program)) {
        return;
    }
    Note("worker " + std::to_string(started.threadId) + " of " + program->Name());
    program->isStarted = true;
    program->worker = started.threadId;
    m_state.workers[started.threadId] = {.threadId = started.threadId, .program = program, .sinceMs = m_state.Now()};
}

void CChecker::OnEventPulsed(unsigned session, const CString& name, const Caller& caller)
{
    ProgramState* program = name == kUpdateEvent ? ProgramOfMain(caller) : nullptr;
    if (!TakeOrder(Moment::kPulses, program)) {
        return;
    }
    m_state.setEvents.erase(session);
    program->isStarted = false;
    program->freeMs = m_state.Now() + kStopMs;
    const std::int64_t stopMs = program->IsTold(What::kQuit) ? kQuitMs : kStopMs;
    const std::int64_t wakesUpMs = m_state.Now() + (std::exchange(program->missesPulse, false) ? stopMs : 0);
    if (WorkerState* worker = WorkerOf(program->worker)) {
        const bool isDownloading = worker->IsIn(Step::kDownload);
        Note(worker->Name() + (isDownloading ? " is told to end in a download" : " is told to end"));
        worker->mustEndBy = isDownloading ? worker->pass.downloadEndsMs : wakesUpMs;
    }
}

void CChecker::OnObjectMade(unsigned session, const CString& name)
{
    // What had the name before is gone, whoever owned it.
    if (name == kUpdateEvent) {
        m_state.setEvents.erase(session);
    } else if (name == kUpdateMutex) {
        m_state.mutexOwner = 0;
    }
}

void CChecker::OnDebugLine(const Caller& /*caller*/, const CString& text)
{
    std::string line = Portable(text);
    line.pop_back(); // its line feed
    Note(line);
}

// --- Workers

WorkerState* CChecker::WorkerOf(DWORD threadId)
{
    const auto found = m_state.workers.find(threadId);
    if (m_violation || found == m_state.workers.end()) {
        return nullptr;
    }
    Settle(found->second);
    return &found->second;
}

void CChecker::MoveTo(WorkerState& worker, At at)
{
    worker.at = at;
    worker.sinceMs = m_state.Now();
}

void CChecker::OnThreadEnded(const Caller& thread)
{
    if (const WorkerState* worker = WorkerOf(thread.threadId)) {
        Note(worker->Name() + " ends");
        Check(SeenOf(Moment::kWorkerEnds, worker));
        worker->program->initialUpdateDone |= worker->isInitial;
        m_state.workers.erase(thread.threadId);
    }
}

void CChecker::OnSettingQueried(const Caller& caller, Hive hive, const CString& keyPath, const CString& valueName,
                                const platform::SettingsValue* value)
{
    WorkerState* worker = WorkerOf(caller.threadId);
    if (worker == nullptr || valueName == L"ApiHost") {
        return;
    }
    Seen seen = SeenOf(Moment::kLooksUp, worker);
    seen.hive = hive;
    seen.site = SiteOf(keyPath);
    seen.name = valueName;
    const bool isMain = seen.site == kMainKeySite;
    if (Check(seen) && !isMain) {
        seen.moment = Moment::kLooksUpSite;
        if (Check(seen) && !worker->pass.HasBegun()) {
            worker->pass.Begin(m_zone, m_state.UtcNow());
        }
    }
    const std::optional<DWORD> number = NumberOf(value);
    const bool isFinal = hive == Hive::kMachine || number;
    worker->userLookup = isFinal ? std::pair(-1, CString()) : std::pair(seen.site, valueName);
    if (m_violation || !isFinal) {
        return;
    }
    if (isMain) {
        OnMainValue(*worker, valueName, number);
    } else {
        OnSiteValue(*worker, valueName, number);
    }
}

void CChecker::OnSiteValue(WorkerState& worker, const CString& name, std::optional<DWORD> value)
{
    PassState& pass = worker.pass;
    const bool isSwitch = name == L"Enable";
    if (isSwitch && value.value_or(1) != 0) {
        return; // the kinds are looked up next
    }
    const DWORD kinds = isSwitch ? 0 : value.value_or(pass.CompanyInTurn().mask);
    if ((kinds & pass.KindInTurn().code) != 0 && m_isConnected) {
        pass.ExpectRequest(m_zone);
    } else {
        pass.EndDay(std::nullopt, m_heldPath);
    }
}

void CChecker::OnMainValue(WorkerState& worker, const CString& name, std::optional<DWORD> value)
{
    if (name == L"Enable") {
        OnDecision(worker, value.value_or(0) != 0);
        return;
    }
    worker.numbers.erase(name);
    if (value) {
        worker.numbers[name] = static_cast<LONG>(*value);
    }
    if (name == L"FixedClockMax") {
        OnBaseSettings(worker);
    } else if (name == L"IntervalMax") {
        OnIntervalSettings(worker);
    }
}

void CChecker::OnDecision(WorkerState& worker, bool isEnabled)
{
    Note(worker.Name() + (isEnabled ? " begins a pass" : " skips a pass"));
    Check(SeenOf(Moment::kDecides, &worker));
    worker.isInitial = worker.at == At::kStart;
    // A wait that the event ended uses it up, and the wait for a mutex that is not free does.
    if (worker.at == At::kWait || (isEnabled && m_state.mutexOwner != 0)) {
        m_state.setEvents.erase(worker.program->session);
    }
    if (isEnabled) {
        worker.pass = {};
        MoveTo(worker, At::kTurn);
        return;
    }
    MoveTo(worker, std::exchange(worker.program->initialUpdateDone, true) ? At::kInterval : At::kBase);
}

void CChecker::OnBaseSettings(WorkerState& worker)
{
    Check(SeenOf(Moment::kReadsBase, &worker));
    const std::int64_t clock = worker.NumberOr(L"FixedClock", 9);
    const Minutes delay =
        RandomMinutesBetween(worker.NumberOr(L"FixedClockMin", 0), worker.NumberOr(L"FixedClockMax", 30));
    if (CalendarOf(m_zone.ToLocal(m_state.UtcNow())).wHour >= clock) {
        MoveTo(worker, At::kInterval);
        return;
    }
    std::optional<CDue> due = CDue::AtBaseTime(m_zone, m_state.UtcNow(), clock, delay);
    if (!due) {
        // The conversion's exception ends the worker.
        Note(worker.Name() + " finds no such hour");
        worker.mustEndBy = m_state.Now();
    } else if (worker.hasFaultySchedule) { // no timer
        MoveTo(worker, At::kInterval);
    } else {
        Note(worker.Name() + " waits for the base time");
        MoveTo(worker, At::kWait);
        worker.due = std::move(due);
    }
}

void CChecker::OnIntervalSettings(WorkerState& worker)
{
    Check(SeenOf(Moment::kReadsInterval, &worker));
    const Minutes random =
        RandomMinutesBetween(worker.NumberOr(L"IntervalMin", -15), worker.NumberOr(L"IntervalMax", 15));
    MoveTo(worker, At::kWait);
    worker.due = CDue::AfterInterval(m_state.Now(), worker.NumberOr(L"Interval", 30), random);
}

// --- Passes

void CChecker::OnMutexAcquired(unsigned /*session*/, const CString& name, const Caller& owner)
{
    WorkerState* worker = WorkerOf(owner.threadId);
    if (name != kUpdateMutex || !Check(SeenOf(Moment::kTakesMutex, worker))) {
        return;
    }
    m_state.mutexOwner = owner.threadId;
    if (worker != nullptr) {
        Note(worker->Name() + " has the mutex");
        MoveTo(*worker, At::kPass);
    }
}

void CChecker::OnMutexReleased(unsigned /*session*/, const CString& name, const Caller& owner, bool abandoned)
{
    if (name != kUpdateMutex) {
        return;
    }
    m_state.mutexOwner = 0;
    WorkerState* worker = WorkerOf(owner.threadId);
    if (worker == nullptr) {
        return;
    }
    Note(worker->Name() + (abandoned ? " abandons the mutex" : " gives the mutex back"));
    Seen seen = SeenOf(Moment::kGivesMutex, worker);
    seen.isAbandoned = abandoned;
    if (Check(seen) && !worker->mustEndBy) {
        m_state.lastPasses[worker->program->session] = ++m_state.passes;
        worker->program->initialUpdateDone = true;
        MoveTo(*worker, At::kInterval);
    }
}

void CChecker::Settle(WorkerState& worker)
{
    PassState& pass = worker.pass;
    if (worker.IsIn(Step::kDownload) && m_state.Now() >= pass.downloadEndsMs && !worker.mustEndBy &&
        Check(SeenOf(Moment::kHasAnswer, &worker))) {
        pass.EndDay(pass.reply.records, m_heldPath);
    }
}

void CChecker::OnFileOpened(const Caller& caller, const CString& path)
{
    WorkerState* worker = WorkerOf(caller.threadId);
    Seen seen = SeenOf(Moment::kOpensFile, worker);
    seen.name = path;
    if (!Check(seen)) {
        return;
    }
    worker->pass.expected = worker->pass.File(CalendarOf(m_zone.ToLocal(m_state.UtcNow())));
    worker->pass.step = Step::kWriting;
}

void CChecker::OnFileClosed(const Caller& caller, const CString& path, const platform::sim::SimFile& file)
{
    WorkerState* worker = WorkerOf(caller.threadId);
    if (worker == nullptr || !worker->IsIn(Step::kWriting)) {
        return;
    }
    Seen seen = SeenOf(Moment::kClosesFile, worker);
    seen.name = path;
    seen.content = file.bytes;
    Check(seen);
    Note("file " + Portable(path) + " " + std::to_string(HashOf(file.bytes)));
    m_state.files[path] = {file.bytes, file.bytes == worker->pass.expected, m_state.passes};
    worker->writeFailed = false;
    worker->pass.EndKind();
}

} // namespace simulation
