// Settings files as a user or an editor may have written them.
#include "platform/linux/RegFile.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size)
{
    for (const wchar_t* valueName : {L"", L"Enable", L"ApiHost"}) {
        platform::SettingsValue value;
        const bool found = platform::linux::FindRegValue(
            {bytes, size}, L"HKEY_LOCAL_MACHINE\\Software\\Halvex\\AmporaSrv", valueName, &value);
        if (!found && !value.data.empty()) {
            std::abort();
        }
        platform::TextOfSetting(value);
    }
    return 0;
}
