// Read access to the two-level settings store: the registry on Windows, a .reg text file per hive on Linux.
// SettingsWriter.h changes it.
#pragma once

#include "platform/Types.h"

#include <vector>

namespace platform {

// The two roots, in the order in which they are looked up.
enum class Hive {
    kPerUser = 0, // HKEY_CURRENT_USER
    kMachine = 1, // HKEY_LOCAL_MACHINE
};

// One stored value as it lies in the store.
struct SettingsValue {
    DWORD type = REG_NONE;  // registry value type (REG_DWORD, REG_SZ, ...)
    std::vector<BYTE> data; // raw bytes, numbers little-endian, text UTF-16LE
};

// Opens the key for reading, reads one value and closes the key. A change is seen by the next call.
// keyPath: below the root, with backslashes; valueName: must not be null. Both compare without case.
// TRUE with *value filled; FALSE, with *value emptied, when key or value is missing or cannot be read. Any thread.
BOOL QuerySettingsValue(Hive hive, const CString& keyPath, const wchar_t* valueName, SettingsValue* value);

// The text of a REG_SZ value up to its first zero, terminated or not; an odd last byte is dropped. Any thread.
CString TextOfSetting(const SettingsValue& value);

} // namespace platform
