// Settings files as a user or an editor may have written them, which are read and changed.
#include "fuzz/Require.h"
#include "platform/linux/RegEdit.h"
#include "platform/linux/RegFile.h"

namespace {

using platform::SettingsValue;

constexpr wchar_t kKey[] = L"HKEY_LOCAL_MACHINE\\Software\\Halvex\\AmporaSrv";

// Empty when there is none.
SettingsValue Find(std::span<const BYTE> file, const wchar_t* valueName)
{
    SettingsValue value;
    const bool found = platform::linux::FindRegValue(file, kKey, valueName, &value);
    Require(found || (value.type == REG_NONE && value.data.empty()));
    return value;
}

bool IsSame(const SettingsValue& left, const SettingsValue& right)
{
    return left.type == right.type && left.data == right.data;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size)
{
    const std::span<const BYTE> file(bytes, size);
    const SettingsValue stored{REG_DWORD, {1, 2, 3, 4}};
    for (const wchar_t* valueName : {L"", L"Enable", L"ApiHost"}) {
        platform::TextOfSetting(Find(file, valueName));
        const auto changed = platform::linux::StoreRegValue(file, kKey, valueName, stored);
        Require(changed && IsSame(Find(*changed, valueName), stored));
        const std::vector<BYTE> removed = platform::linux::RemoveRegValue(*changed, kKey, valueName);
        Require(IsSame(Find(removed, valueName), {}));
        // The other values stay what they are.
        for (const wchar_t* other : {L"", L"Enable", L"ApiHost", L"Interval"}) {
            const SettingsValue before = Find(file, other);
            Require(std::wstring_view(other) == valueName ||
                    (IsSame(Find(*changed, other), before) && IsSame(Find(removed, other), before)));
        }
    }
    return 0;
}
