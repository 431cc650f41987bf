#include "config/SettingsTable.h"

#include "platform/Text.h"

#include <cstring>

namespace settings {

namespace {

std::optional<Content> ContentOf(const platform::SettingsValue& value, Type type)
{
    Content content;
    if (type == Type::kText) {
        if (value.type == REG_SZ) {
            content.text = platform::TextOfSetting(value);
        }
        return content.text.empty() ? std::nullopt : std::optional(content);
    }
    if (value.type != REG_DWORD || value.data.size() != sizeof(content.number)) {
        return std::nullopt;
    }
    std::memcpy(&content.number, value.data.data(), sizeof(content.number));
    return content;
}

ContentInForce Find(const CString& keyPath, const Setting& setting, const Content& defaultContent)
{
    for (const platform::Hive hive : {platform::Hive::kPerUser, platform::Hive::kMachine}) {
        if (std::optional<Content> content = StoredContent(hive, keyPath, setting)) {
            return {std::move(*content), hive};
        }
    }
    return {defaultContent, std::nullopt};
}

} // namespace

CString SiteKey(int siteNumber) { return platform::FormatText(L"%s\\site\\%d", kMainKey, siteNumber); }

std::optional<Content> StoredContent(platform::Hive hive, const CString& keyPath, const Setting& setting)
{
    platform::SettingsValue value;
    if ((setting.isMachineOnly && hive != platform::Hive::kMachine) ||
        !platform::QuerySettingsValue(hive, keyPath, setting.name, &value)) {
        return std::nullopt;
    }
    return ContentOf(value, setting.type);
}

ContentInForce FindContent(const CString& keyPath, const Setting& setting)
{
    return Find(keyPath, setting,
                {setting.defaultNumber, setting.defaultText == nullptr ? CString() : setting.defaultText});
}

ContentInForce FindContent(const CString& keyPath, const Setting& setting, LONG defaultNumber)
{
    return Find(keyPath, setting, {defaultNumber, {}});
}

} // namespace settings
