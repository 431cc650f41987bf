#include "platform/SettingsWriter.h"

#include "platform/win32/Handle.h"

namespace platform {

namespace {

HKEY RootOf(Hive hive) { return hive == Hive::kPerUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE; }

BOOL Succeed(LONG status)
{
    ::SetLastError(static_cast<DWORD>(status));
    return status == ERROR_SUCCESS ? TRUE : FALSE;
}

} // namespace

BOOL StoreSettingsValue(Hive hive, const CString& keyPath, const wchar_t* valueName, const SettingsValue& value)
{
    win32::CRegistryKey key;
    LONG status = ::RegCreateKeyExW(RootOf(hive), keyPath.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_SET_VALUE,
                                    nullptr, key.Receive(), nullptr);
    if (status == ERROR_SUCCESS) {
        status = ::RegSetValueExW(key.Get(), valueName, 0, value.type, value.data.data(),
                                  static_cast<DWORD>(value.data.size()));
    }
    return Succeed(status);
}

BOOL RemoveSettingsValue(Hive hive, const CString& keyPath, const wchar_t* valueName)
{
    win32::CRegistryKey key;
    LONG status = ::RegOpenKeyExW(RootOf(hive), keyPath.c_str(), 0, KEY_SET_VALUE, key.Receive());
    if (status == ERROR_SUCCESS) {
        status = ::RegDeleteValueW(key.Get(), valueName);
    }
    return Succeed(status);
}

CString SettingsPlace(Hive hive, const CString& keyPath)
{
    return (hive == Hive::kPerUser ? L"HKEY_CURRENT_USER\\" : L"HKEY_LOCAL_MACHINE\\") + keyPath;
}

} // namespace platform
