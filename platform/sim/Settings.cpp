#include "platform/Settings.h"

#include "platform/sim/MachineState.h"

namespace platform {

namespace {

// The value as it is stored; null when there is none or the query fails.
const SettingsValue* FindSetting(const sim::Caller& caller, Hive hive, const CString& keyPath, const CString& valueName)
{
    if (sim::FailsByFault(sim::Call::kQuerySettingsValue)) {
        return nullptr;
    }
    const auto& settings = sim::Machine().settings;
    const auto found = settings.find(sim::SettingKeyOf(hive, caller.session, keyPath, valueName));
    return found == settings.end() ? nullptr : &found->second;
}

} // namespace

BOOL QuerySettingsValue(Hive hive, const CString& keyPath, const wchar_t* valueName, SettingsValue* value)
{
    const sim::Caller caller = sim::CallingThread();
    const SettingsValue* found = FindSetting(caller, hive, keyPath, valueName);
    if (sim::CObserver* observer = sim::Machine().observer) {
        observer->OnSettingQueried(caller, hive, keyPath, valueName, found);
    }
    *value = found == nullptr ? SettingsValue{} : *found;
    return found == nullptr ? FALSE : TRUE;
}

} // namespace platform
