#include "config/ConfigUtil.h"

#include "platform/Text.h"

#include <cstring>

namespace {

constexpr wchar_t kMainKey[] = L"Software\\Halvex\\AmporaSrv";
constexpr wchar_t kDefaultApiHost[] = L"127.0.0.1:8470";

CString SiteKey(int siteIndex) { return platform::FormatText(L"%s\\site\\%d", kMainKey, siteIndex); }

} // namespace

CConfigUtil::CConfigUtil(CString strKeyPath) : m_strKeyPath(std::move(strKeyPath)) {}

CConfigUtil::~CConfigUtil() = default;

DWORD CConfigUtil::GetLogLevel()
{
    DWORD level = 0;
    CConfigUtil(kMainKey).QueryDWORD(L"LogLevel", platform::Hive::kPerUser, level);
    return level;
}

bool CConfigUtil::IsUpdateEnable()
{
    DWORD enable = 0;
    CConfigUtil(kMainKey).QueryDWORD(L"Enable", platform::Hive::kMachine, enable);
    return enable != 0;
}

bool CConfigUtil::IsSiteEnable(int siteIndex)
{
    DWORD enable = 1;
    CConfigUtil(SiteKey(siteIndex)).QueryDWORD(L"Enable", platform::Hive::kPerUser, enable);
    return enable != 0;
}

DWORD CConfigUtil::GetSupportDataType(int siteIndex, DWORD defaultMask)
{
    DWORD mask = defaultMask;
    CConfigUtil(SiteKey(siteIndex)).QueryDWORD(L"SupportDataType", platform::Hive::kPerUser, mask);
    return mask;
}

void CConfigUtil::GetIntervalSetting(LONG& interval, LONG& minimum, LONG& maximum)
{
    const CConfigUtil config(kMainKey);
    interval = config.QueryNumber(L"Interval", 30);
    minimum = config.QueryNumber(L"IntervalMin", -15);
    maximum = config.QueryNumber(L"IntervalMax", 15);
}

void CConfigUtil::GetFixedClockSetting(LONG& clock, LONG& minimum, LONG& maximum)
{
    const CConfigUtil config(kMainKey);
    clock = config.QueryNumber(L"FixedClock", 9);
    minimum = config.QueryNumber(L"FixedClockMin", 0);
    maximum = config.QueryNumber(L"FixedClockMax", 30);
}

CString CConfigUtil::GetApiHost()
{
    CString host;
    CConfigUtil(kMainKey).QueryText(L"ApiHost", host);
    return host.empty() ? CString(kDefaultApiHost) : host;
}

template <class Accept>
bool CConfigUtil::Query(const wchar_t* valueName, platform::Hive firstHive, Accept accept) const
{
    platform::SettingsValue value;
    for (const platform::Hive hive : {platform::Hive::kPerUser, platform::Hive::kMachine}) {
        if (hive >= firstHive && platform::QuerySettingsValue(hive, m_strKeyPath, valueName, &value) && accept(value)) {
            return true;
        }
    }
    return false;
}

bool CConfigUtil::QueryDWORD(const wchar_t* valueName, platform::Hive firstHive, DWORD& value) const
{
    return Query(valueName, firstHive, [&value](const platform::SettingsValue& stored) {
        if (stored.type != REG_DWORD || stored.data.size() != sizeof(value)) {
            return false;
        }
        std::memcpy(&value, stored.data.data(), sizeof(value));
        return true;
    });
}

LONG CConfigUtil::QueryNumber(const wchar_t* valueName, LONG defaultValue) const
{
    auto value = static_cast<DWORD>(defaultValue);
    QueryDWORD(valueName, platform::Hive::kPerUser, value);
    return static_cast<LONG>(value);
}

void CConfigUtil::QueryText(const wchar_t* valueName, CString& value) const
{
    Query(valueName, platform::Hive::kPerUser, [&value](const platform::SettingsValue& stored) {
        if (stored.type != REG_SZ) {
            return false;
        }
        value = platform::TextOfSetting(stored);
        return !value.empty();
    });
}
