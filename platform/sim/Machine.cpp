#include "platform/sim/Machine.h"

#include "platform/LastError.h"
#include "platform/LetterCase.h"
#include "platform/SettingsWriter.h"
#include "platform/sim/MachineState.h"

#include <algorithm>

namespace platform::sim {

namespace {

CMachine* g_current = nullptr;

std::int64_t CountOfCalendar(const SYSTEMTIME& calendar)
{
    std::uint64_t count = 0;
    if (!portable::CalendarToCount(calendar, &count)) {
        EndProgram("its clock cannot be set to a date that does not exist");
    }
    return static_cast<std::int64_t>(count);
}

CString WithoutCase(CString text)
{
    std::ranges::transform(text, text.begin(), LowerCase<wchar_t>);
    return text;
}

} // namespace

MachineState::MachineState()
    : scheduler({[this] { return timers.NextDue(); }, [this] { timers.SoundDue(); }}), timers(scheduler, utcAtStart),
      objects(scheduler, observer), windows(scheduler)
{
    utcAtStart = UtcOfLocal(CountOfCalendar({2012, 7, 1, 2, 13, 0, 0, 0}));
    freeBytes = std::numeric_limits<std::size_t>::max();
    httpHandler = [](const testing_support::HttpExchange&) { return testing_support::HttpAnswer{.status = 404}; };
    connectedFlags = 2; // LAN
    otherProcess.process.processId = 2000;
    otherProcess.threadId = 1;
    processes[CScheduler::Self().context.process.processId].threads = 1;
}

std::int64_t MachineState::DeadlineAfter(DWORD timeoutMs) const
{
    return timeoutMs == INFINITE ? kNever : scheduler.Now() + timeoutMs * portable::kUnitsPerMs;
}

std::int64_t MachineState::UtcOffsetAt(std::int64_t utc) const
{
    const auto next = plannedUtcOffsets.upper_bound(utc);
    const int minutes = next == plannedUtcOffsets.begin() ? utcOffsetMinutes : std::prev(next)->second;
    return std::int64_t{minutes} * 60 * portable::kUnitsPerSecond;
}

std::int64_t MachineState::UtcOfLocal(std::int64_t local) const
{
    // The first change whose local time, by the offset before it, has not come yet; the offset before it holds.
    for (const auto& change : plannedUtcOffsets) {
        const std::int64_t before = UtcOffsetAt(change.first - 1);
        if (local - before < change.first || local - UtcOffsetAt(change.first) < change.first) {
            return local - before;
        }
    }
    return local - (plannedUtcOffsets.empty() ? UtcOffsetAt(0) : UtcOffsetAt(plannedUtcOffsets.rbegin()->first));
}

Caller CallingThread() { return CallerOf(CScheduler::Self().context); }

MachineState& Machine() { return *CMachine::Current().m_state; }

bool FailsByFault(Call call)
{
    const auto code = Machine().faults.Take(call);
    if (code) {
        SetLastErrorCode(*code);
    }
    return code.has_value();
}

MachineState::SettingKey SettingKeyOf(Hive hive, unsigned session, const CString& keyPath, const CString& valueName)
{
    return {hive, hive == Hive::kPerUser ? session : 0, WithoutCase(keyPath), WithoutCase(valueName)};
}

CMachine::CMachine() : m_state(std::make_unique<MachineState>()) { g_current = this; }

CMachine::~CMachine()
{
    m_state.reset();
    g_current = nullptr;
}

CMachine& CMachine::Current()
{
    if (g_current == nullptr) {
        EndProgram("there is none");
    }
    return *g_current;
}

void CMachine::SetLocalClock(const SYSTEMTIME& local)
{
    m_state->utcAtStart = m_state->UtcOfLocal(CountOfCalendar(local)) - m_state->scheduler.Now();
    m_state->timers.SoundDue();
}

void CMachine::SetUtcOffset(int minutes)
{
    m_state->utcOffsetMinutes = minutes;
    m_state->plannedUtcOffsets.clear();
}

void CMachine::PlanUtcOffset(std::int64_t time, int minutes)
{
    m_state->plannedUtcOffsets[time * portable::kUnitsPerSecond + portable::kUnixEpochCount] = minutes;
}

void CMachine::PassSuspended(std::int64_t timeMs)
{
    m_state->utcAtStart += timeMs * portable::kUnitsPerMs;
    m_state->timers.SoundDue();
}

std::int64_t CMachine::ElapsedMs() const { return m_state->scheduler.Now() / portable::kUnitsPerMs; }

std::size_t CMachine::ThreadCount() const { return m_state->scheduler.ThreadCount(); }

void CMachine::RunUntilIdle() { RunFor(0); }

void CMachine::RunFor(std::int64_t timeMs)
{
    m_state->scheduler.WaitForIdle(m_state->scheduler.Now() + timeMs * portable::kUnitsPerMs);
}

void CMachine::PutSetting(Hive hive, const CString& keyPath, const CString& valueName, const SettingsValue& value,
                          unsigned session)
{
    m_state->settings[SettingKeyOf(hive, session, keyPath, valueName)] = value;
}

void CMachine::PutDword(Hive hive, const CString& keyPath, const CString& valueName, DWORD value, unsigned session)
{
    PutSetting(hive, keyPath, valueName, SettingOfNumber(value), session);
}

void CMachine::PutText(Hive hive, const CString& keyPath, const CString& valueName, const CString& text,
                       unsigned session)
{
    PutSetting(hive, keyPath, valueName, SettingOfText(text), session);
}

void CMachine::RemoveSetting(Hive hive, const CString& keyPath, const CString& valueName, unsigned session)
{
    m_state->settings.erase(SettingKeyOf(hive, session, keyPath, valueName));
}

void CMachine::KeepDebugLines(bool keep) { m_state->keepsDebugLines = keep; }

std::vector<CString> CMachine::DebugLines() const { return m_state->debugLines; }

void CMachine::ClearDebugLines() { m_state->debugLines.clear(); }

void CMachine::FailCall(Call call, unsigned nth, DWORD code) { m_state->faults.FailCall(call, nth, code); }

void CMachine::FailEvery(Call call, DWORD code) { m_state->faults.FailEvery(call, code); }

void CMachine::SetFaultPlan(FaultPlan plan) { m_state->faults.SetPlan(std::move(plan)); }

void CMachine::SetTerminal(int columns, bool allowsColour, bool showsUnicode)
{
    m_state->terminalColumns = columns;
    m_state->terminalAllowsColour = allowsColour;
    m_state->terminalShowsUnicode = showsUnicode;
}

void CMachine::SetObserver(CObserver* observer) { m_state->observer = observer; }

void CMachine::ClearFaults() { m_state->faults.Clear(); }

unsigned CMachine::CallCount(Call call) const { return m_state->faults.CallCount(call); }

void CMachine::SetHttpHandler(testing_support::HttpHandler handler) { m_state->httpHandler = std::move(handler); }

void CMachine::SetConnectedState(BOOL result, DWORD flags)
{
    m_state->connectedResult = result;
    m_state->connectedFlags = flags;
}

void CMachine::KeepHttpExchanges(bool keep) { m_state->keepsHttpExchanges = keep; }

std::vector<testing_support::HttpExchange> CMachine::HttpExchanges() const { return m_state->httpExchanges; }

std::size_t CMachine::OpenHttpHandleCount() const
{
    const std::vector<std::weak_ptr<void>>& handles = m_state->httpHandles;
    return static_cast<std::size_t>(
        std::count_if(handles.begin(), handles.end(), [](const auto& handle) { return !handle.expired(); }));
}

unsigned CMachine::ArmedTimerCount() const { return m_state->timers.ArmedCount(); }

int CMachine::ApartmentBalance() const { return m_state->apartmentBalance; }

} // namespace platform::sim
