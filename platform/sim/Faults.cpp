#include "platform/sim/Faults.h"

#include "platform/sim/Scheduler.h"

#include <algorithm>
#include <iterator>

namespace platform::sim {

namespace {

// In the order of Call.
constexpr const char* kCallNames[] = {
    "TimeToLocalCalendar",
    "LocalCalendarToTime",
    "CalendarToFileTime",
    "LocalToUtcFileTime",
    "QuerySettingsValue",
    "StoreSettingsValue",
    "RemoveSettingsValue",
    "OutputDebugText",
    "StartThread",
    "CreateNamedMutex",
    "CreateNamedMutexThrows",
    "OpenNamedMutex",
    "CreateNamedEvent",
    "OpenNamedEvent",
    "PulseNamedEventMisses",
    "ReleaseOwnedMutex",
    "WaitForOne",
    "WaitForAny",
    "MakeTimer",
    "ArmTimer",
    "DisarmTimer",
    "InitializeDescriptor",
    "SetNullDacl",
    "OpenHttpSession",
    "OpenHttpConnection",
    "OpenHttpConnectionThrows",
    "OpenHttpRequest",
    "OpenHttpRequestThrows",
    "SendHttpRequest",
    "SendHttpRequestThrows",
    "QueryHttpStatusCode",
    "QueryHttpStatusCodeThrows",
    "ReadHttpBody",
    "CloseHttpSession",
    "CreateDomDocument",
    "LoadDomText",
    "LoadDomTextThrows",
    "LoadDomFile",
    "LoadDomFileThrows",
    "GetDomDocumentElement",
    "GetDomChildNodes",
    "GetDomItem",
    "GetDomLength",
    "GetDomAttributes",
    "GetDomNodeName",
    "GetDomText",
    "GetDomNamedItem",
    "GetDomNodeValue",
    "GetCommonAppDataFolder",
    "MakeFolder",
    "OpenForReplace",
    "WriteFileBytes",
    "OpenFolderWatch",
    "WaitForFolderChange",
    "OpenTraceChannel",
    "ReadTraceText",
    "InitializeControls",
    "RegisterDialogClass",
    "CreateDialogWindow",
    "RegisterSessionNotices",
    "PostToWindow",
    "FindProgramOfWindow",
    "StartProgram",
};
static_assert(std::size(kCallNames) == static_cast<std::size_t>(Call::kCount));

} // namespace

const char* NameOf(Call call) { return kCallNames[static_cast<std::size_t>(call)]; }

void CFaults::FailCall(Call call, unsigned nth, DWORD code)
{
    if (nth == 0) {
        EndProgram("FailCall counts from 1");
    }
    CallFaults& faults = Of(call);
    faults.once.push_back({faults.count + nth, code});
}

void CFaults::FailEvery(Call call, DWORD code) { Of(call).every = code; }

void CFaults::Clear()
{
    m_plan = nullptr;
    for (CallFaults& faults : m_calls) {
        faults.once.clear();
        faults.every.reset();
    }
}

std::optional<DWORD> CFaults::Take(Call call)
{
    CallFaults& faults = Of(call);
    ++faults.count;
    const auto due = std::find_if(faults.once.begin(), faults.once.end(),
                                  [&](const Once& fault) { return fault.atCount == faults.count; });
    if (due != faults.once.end()) {
        return due->code;
    }
    return m_plan && !faults.every ? m_plan(call) : faults.every;
}

} // namespace platform::sim
