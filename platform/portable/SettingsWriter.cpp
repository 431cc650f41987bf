#include "platform/SettingsWriter.h"

#include "platform/portable/Utf16.h"

namespace platform {

SettingsValue SettingOfNumber(DWORD number)
{
    SettingsValue value{REG_DWORD, {}};
    for (int shift = 0; shift < 32; shift += 8) {
        value.data.push_back(static_cast<BYTE>(number >> shift));
    }
    return value;
}

SettingsValue SettingOfText(const CString& text)
{
    CString terminated = text;
    terminated.push_back(L'\0');
    return {REG_SZ, portable::EncodeUtf16(terminated)};
}

} // namespace platform
