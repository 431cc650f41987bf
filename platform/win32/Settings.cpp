#include "platform/Settings.h"

#include "platform/win32/Handle.h"

namespace platform {

namespace {

// How often a value that grows between two queries is asked for again.
constexpr int kMaxQueries = 8;

} // namespace

BOOL QuerySettingsValue(Hive hive, const CString& keyPath, const wchar_t* valueName, SettingsValue* value)
{
    *value = {};
    const auto root = hive == Hive::kPerUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
    win32::CRegistryKey key;
    if (::RegOpenKeyExW(root, keyPath.c_str(), 0, KEY_READ, key.Receive()) != ERROR_SUCCESS) {
        return FALSE;
    }
    std::vector<BYTE> data(64);
    for (int query = 0; query < kMaxQueries; ++query) {
        DWORD type = REG_NONE;
        auto size = static_cast<DWORD>(data.size());
        const LONG status = ::RegQueryValueExW(key.Get(), valueName, nullptr, &type, data.data(), &size);
        data.resize(size);
        if (status == ERROR_SUCCESS) {
            *value = {type, std::move(data)};
            return TRUE;
        }
        if (status != ERROR_MORE_DATA) {
            return FALSE;
        }
    }
    return FALSE;
}

} // namespace platform
