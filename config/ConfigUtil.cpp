#include "config/ConfigUtil.h"

using settings::FindContent;
using settings::kMainKey;
using settings::SiteKey;

CConfigUtil::CConfigUtil(CString strKeyPath) : m_strKeyPath(std::move(strKeyPath)) {}

CConfigUtil::~CConfigUtil() = default;

DWORD CConfigUtil::GetLogLevel() { return CConfigUtil(kMainKey).QueryDWORD(settings::kLogLevel); }

bool CConfigUtil::IsUpdateEnable() { return CConfigUtil(kMainKey).QueryDWORD(settings::kEnable) != 0; }

bool CConfigUtil::IsSiteEnable(int siteIndex)
{
    return CConfigUtil(SiteKey(siteIndex)).QueryDWORD(settings::kSiteEnable) != 0;
}

DWORD CConfigUtil::GetSupportDataType(int siteIndex, DWORD defaultMask)
{
    const CConfigUtil config(SiteKey(siteIndex));
    return static_cast<DWORD>(
        FindContent(config.m_strKeyPath, settings::kSupportDataType, static_cast<LONG>(defaultMask)).content.number);
}

void CConfigUtil::GetIntervalSetting(LONG& interval, LONG& minimum, LONG& maximum)
{
    const CConfigUtil config(kMainKey);
    interval = config.QueryNumber(settings::kInterval);
    minimum = config.QueryNumber(settings::kIntervalMin);
    maximum = config.QueryNumber(settings::kIntervalMax);
}

void CConfigUtil::GetFixedClockSetting(LONG& clock, LONG& minimum, LONG& maximum)
{
    const CConfigUtil config(kMainKey);
    clock = config.QueryNumber(settings::kFixedClock);
    minimum = config.QueryNumber(settings::kFixedClockMin);
    maximum = config.QueryNumber(settings::kFixedClockMax);
}

CString CConfigUtil::GetApiHost() { return FindContent(kMainKey, settings::kApiHost).content.text; }

LONG CConfigUtil::QueryNumber(const settings::Setting& setting) const
{
    return FindContent(m_strKeyPath, setting).content.number;
}

DWORD CConfigUtil::QueryDWORD(const settings::Setting& setting) const
{
    return static_cast<DWORD>(QueryNumber(setting));
}
