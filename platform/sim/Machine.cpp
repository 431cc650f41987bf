#include "platform/sim/Machine.h"

#include "platform/LastError.h"
#include "platform/sim/MachineState.h"

#include <algorithm>
#include <cwctype>

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

CString LowerCase(CString text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](wchar_t character) { return static_cast<wchar_t>(std::towlower(character)); });
    return text;
}

} // namespace

MachineState::MachineState()
    : scheduler({[this] { return timers.NextDue(); }, [this] { timers.SoundDue(); }}), timers(scheduler, utcAtStart),
      objects(scheduler)
{
    utcAtStart = CountOfCalendar({2012, 7, 1, 2, 13, 0, 0, 0}) - UtcOffsetUnits();
    freeBytes = std::numeric_limits<std::size_t>::max();
    httpHandler = [](const HttpExchange&) { return HttpAnswer{.status = 404}; };
    connectedFlags = 2; // LAN
    otherProcess = {2000, 1, 0};
}

std::int64_t MachineState::DeadlineAfter(DWORD timeoutMs) const
{
    return timeoutMs == INFINITE ? kNever : scheduler.Now() + timeoutMs * portable::kUnitsPerMs;
}

MachineState& Machine() { return *CMachine::Current().m_state; }

bool FailsByFault(Call call)
{
    const auto code = Machine().faults.Take(call);
    if (code) {
        SetLastErrorCode(*code);
    }
    return code.has_value();
}

MachineState::SettingKey SettingKeyOf(Hive hive, const CString& keyPath, const CString& valueName)
{
    return {hive, LowerCase(keyPath), LowerCase(valueName)};
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
    m_state->utcAtStart = CountOfCalendar(local) - m_state->UtcOffsetUnits() - m_state->scheduler.Now();
    m_state->timers.SoundDue();
}

void CMachine::SetUtcOffset(int minutes) { m_state->utcOffsetMinutes = minutes; }

std::int64_t CMachine::ElapsedMs() const { return m_state->scheduler.Now() / portable::kUnitsPerMs; }

void CMachine::RunUntilIdle() { RunFor(0); }

void CMachine::RunFor(std::int64_t timeMs)
{
    m_state->scheduler.WaitForIdle(m_state->scheduler.Now() + timeMs * portable::kUnitsPerMs);
}

void CMachine::PutSetting(Hive hive, const CString& keyPath, const CString& valueName, const SettingsValue& value)
{
    m_state->settings[SettingKeyOf(hive, keyPath, valueName)] = value;
}

void CMachine::PutDword(Hive hive, const CString& keyPath, const CString& valueName, DWORD value)
{
    SettingsValue setting{REG_DWORD, {}};
    for (int shift = 0; shift < 32; shift += 8) {
        setting.data.push_back(static_cast<BYTE>(value >> shift));
    }
    PutSetting(hive, keyPath, valueName, setting);
}

void CMachine::PutText(Hive hive, const CString& keyPath, const CString& valueName, const CString& text)
{
    SettingsValue setting{REG_SZ, {}};
    for (const wchar_t character : text + L'\0') {
        setting.data.push_back(static_cast<BYTE>(character));
        setting.data.push_back(static_cast<BYTE>(character >> 8));
    }
    PutSetting(hive, keyPath, valueName, setting);
}

void CMachine::RemoveSetting(Hive hive, const CString& keyPath, const CString& valueName)
{
    m_state->settings.erase(SettingKeyOf(hive, keyPath, valueName));
}

std::vector<CString> CMachine::DebugLines() const { return m_state->debugLines; }

void CMachine::ClearDebugLines() { m_state->debugLines.clear(); }

void CMachine::FailCall(Call call, unsigned nth, DWORD code) { m_state->faults.FailCall(call, nth, code); }

void CMachine::FailEvery(Call call, DWORD code) { m_state->faults.FailEvery(call, code); }

void CMachine::ClearFaults() { m_state->faults.Clear(); }

unsigned CMachine::CallCount(Call call) const { return m_state->faults.CallCount(call); }

void CMachine::SetHttpHandler(HttpHandler handler) { m_state->httpHandler = std::move(handler); }

void CMachine::SetConnectedState(BOOL result, DWORD flags)
{
    m_state->connectedResult = result;
    m_state->connectedFlags = flags;
}

std::vector<HttpExchange> CMachine::HttpExchanges() const { return m_state->httpExchanges; }

std::size_t CMachine::OpenHttpHandleCount() const
{
    const std::vector<std::weak_ptr<void>>& handles = m_state->httpHandles;
    return static_cast<std::size_t>(
        std::count_if(handles.begin(), handles.end(), [](const auto& handle) { return !handle.expired(); }));
}

unsigned CMachine::ArmedTimerCount() const { return m_state->timers.ArmedCount(); }

int CMachine::ApartmentBalance() const { return m_state->apartmentBalance; }

} // namespace platform::sim
