#include "platform/Settings.h"
#include "platform/Text.h"

namespace platform {

CString TextOfSetting(const SettingsValue& value)
{
    CString text;
    for (std::size_t i = 0; i + 1 < value.data.size(); i += 2) {
        const auto unit = static_cast<wchar_t>(value.data[i] | (value.data[i + 1] << 8));
        if (unit == 0) {
            break;
        }
        text.push_back(unit);
    }
    return text;
}

} // namespace platform
