#include "platform/Settings.h"

#include "platform/sim/MachineState.h"

namespace platform {

BOOL QuerySettingsValue(Hive hive, const CString& keyPath, const wchar_t* valueName, SettingsValue* value)
{
    *value = {};
    if (sim::FailsByFault(sim::Call::kQuerySettingsValue)) {
        return FALSE;
    }
    const unsigned session = sim::CScheduler::Self().context.process.session;
    const auto& settings = sim::Machine().settings;
    const auto found = settings.find(sim::SettingKeyOf(hive, session, keyPath, valueName));
    if (found == settings.end()) {
        return FALSE;
    }
    *value = found->second;
    return TRUE;
}

} // namespace platform
