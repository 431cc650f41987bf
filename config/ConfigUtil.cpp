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

DWORD CConfigUtil::GetLogLevel() { return CConfigUtil(kMainKey).QueryDWORD(L"LogLevel", 0); }

bool CConfigUtil::IsUpdateEnable()
{
    return CConfigUtil(kMainKey).QueryDWORD(L"Enable", 0, platform::Hive::kMachine) != 0;
}

bool CConfigUtil::IsSiteEnable(int siteIndex) { return CConfigUtil(SiteKey(siteIndex)).QueryDWORD(L"Enable", 1) != 0; }

DWORD CConfigUtil::GetSupportDataType(int siteIndex, DWORD defaultMask)
{
    return CConfigUtil(SiteKey(siteIndex)).QueryDWORD(L"SupportDataType", defaultMask);
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
    CString host = CConfigUtil(kMainKey).QueryText(L"ApiHost");
    return host.empty() ? CString(kDefaultApiHost) : host;
}

template <class Accept>
void CConfigUtil::Query(const wchar_t* valueName, platform::Hive firstHive, Accept accept) const
{
    platform::SettingsValue value;
    for (const platform::Hive hive : {platform::Hive::kPerUser, platform::Hive::kMachine}) {
        if (hive >= firstHive && platform::QuerySettingsValue(hive, m_strKeyPath, valueName, &value) && accept(value)) {
            return;
        }
    }
}

DWORD CConfigUtil::QueryDWORD(const wchar_t* valueName, DWORD defaultValue, platform::Hive firstHive) const
{
    DWORD value = defaultValue;
    Query(valueName, firstHive, [&value](const platform::SettingsValue& stored) {
        if (stored.type != REG_DWORD || stored.data.size() != sizeof(value)) {
            return false;
        }
        std::memcpy(&value, stored.data.data(), sizeof(value));
        return true;
    });
    return value;
}

LONG CConfigUtil::QueryNumber(const wchar_t* valueName, LONG defaultValue) const
{
    return static_cast<LONG>(QueryDWORD(valueName, static_cast<DWORD>(defaultValue)));
}

CString CConfigUtil::QueryText(const wchar_t* valueName) const
{
    CString value;
    Query(valueName, platform::Hive::kPerUser, [&value](const platform::SettingsValue& stored) {
        if (stored.type == REG_SZ) {
            value = platform::TextOfSetting(stored);
        }
        return !value.empty();
    });
    return value;
}
