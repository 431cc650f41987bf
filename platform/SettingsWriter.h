// Write access to the settings store that Settings.h reads. Only programs that change settings link it.
#pragma once

#include "platform/Settings.h"
#include "platform/Types.h"

namespace platform {

// Stores one value, in the place of one of the same name whatever its type; makes its key when there is none. keyPath,
// valueName: as for QuerySettingsValue, which gives the value from then on. Two processes that change the store at once
// lose nothing of each other's changes. FALSE, with the calling thread's last error set and the store as it was, on
// failure: error 5 without the right to. Any thread.
//
// On Linux the hive's file is replaced as a whole by one with the same owner, group and rights, where the system lets
// this user set them; where it is a symbolic link, the file that it points to. All of its lines but the value's own
// stay as they are. Where the hive has no file it is made, of the machine-wide hive below the last folder that
// $XDG_CONFIG_DIRS names. Error 32 when another process has been changing it for half a second.
BOOL StoreSettingsValue(Hive hive, const CString& keyPath, const wchar_t* valueName, const SettingsValue& value);

// Removes one value; its key stays. As above; error 2 when there is no such value.
BOOL RemoveSettingsValue(Hive hive, const CString& keyPath, const wchar_t* valueName);

// A value of type REG_DWORD, and one of REG_SZ with its terminating zero. Any thread.
SettingsValue SettingOfNumber(DWORD number);
SettingsValue SettingOfText(const CString& text);

// Where a key of a hive is stored, for people: the registry key with its root, or the file's path. Empty when the
// environment names no folder for it. Any thread.
CString SettingsPlace(Hive hive, const CString& keyPath);

} // namespace platform
