#include "platform/Settings.h"
#include "platform/portable/Utf16.h"

namespace platform {

CString TextOfSetting(const SettingsValue& value)
{
    CString text = portable::DecodeUtf16(value.data);
    const std::size_t end = text.find(L'\0');
    if (end != CString::npos) {
        text.resize(end);
    }
    return text;
}

} // namespace platform
