// The program's settings.
#pragma once

#include "config/SettingsTable.h"
#include "platform/Types.h"

// Reads the settings below "Software\Halvex\AmporaSrv". Each value is read from the per-user hive, then from the
// machine-wide one; only a REG_DWORD of four bytes (text: REG_SZ) counts, otherwise the default applies. Every getter
// reads the store again at each call. None fails, logs or takes a lock; any thread.
class CConfigUtil {
public:
    // strKeyPath: the key to read from, below the hive's root.
    explicit CConfigUtil(CString strKeyPath);
    virtual ~CConfigUtil();

    // "LogLevel": bits of g_dwLogLevel (TraceLog.h). Default 0.
    static DWORD GetLogLevel();
    // "Enable" of the main key: the master switch of updating. Read from the machine-wide hive alone, so that no
    // user can override it. Default off.
    static bool IsUpdateEnable();
    // "Enable" of a site's key. siteIndex: site number. Default on.
    static bool IsSiteEnable(int siteIndex);
    // "SupportDataType" of a site's key: mask of data type codes. siteIndex: site number; defaultMask: when not set.
    static DWORD GetSupportDataType(int siteIndex, DWORD defaultMask);
    // "Interval", "IntervalMin", "IntervalMax", minutes, as stored: not checked, not ordered. Each value may
    // come from another hive. Defaults 30, -15, 15.
    static void GetIntervalSetting(LONG& interval, LONG& minimum, LONG& maximum);
    // "FixedClock" (hour of day), "FixedClockMin", "FixedClockMax" (minutes), as stored. Each value may come from
    // another hive. Defaults 9, 0, 30.
    static void GetFixedClockSetting(LONG& clock, LONG& minimum, LONG& maximum);
    // "ApiHost": host or host:port of the report API. Default "127.0.0.1:8470"; an empty text counts as not set.
    static CString GetApiHost();

private:
    // The number that is in force, with its default when no hive has it.
    DWORD QueryDWORD(const settings::Setting& setting) const;
    LONG QueryNumber(const settings::Setting& setting) const;

    CString m_strKeyPath;
};
