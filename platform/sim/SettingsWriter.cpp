#include "platform/SettingsWriter.h"

#include "platform/LastError.h"
#include "platform/sim/MachineState.h"

namespace platform {

BOOL StoreSettingsValue(Hive hive, const CString& keyPath, const wchar_t* valueName, const SettingsValue& value)
{
    if (sim::FailsByFault(sim::Call::kStoreSettingsValue)) {
        return FALSE;
    }
    sim::Machine().settings[sim::SettingKeyOf(hive, sim::CallingThread().session, keyPath, valueName)] = value;
    return TRUE;
}

BOOL RemoveSettingsValue(Hive hive, const CString& keyPath, const wchar_t* valueName)
{
    if (sim::FailsByFault(sim::Call::kRemoveSettingsValue)) {
        return FALSE;
    }
    if (sim::Machine().settings.erase(sim::SettingKeyOf(hive, sim::CallingThread().session, keyPath, valueName)) == 0) {
        SetLastErrorCode(ERROR_FILE_NOT_FOUND);
        return FALSE;
    }
    return TRUE;
}

CString SettingsPlace(Hive hive, const CString& keyPath)
{
    return (hive == Hive::kPerUser ? L"HKEY_CURRENT_USER\\" : L"HKEY_LOCAL_MACHINE\\") + keyPath;
}

} // namespace platform
