// The table of settings: every setting of the program, each listed once, and the value of it that is in force.
#pragma once

#include "platform/Settings.h"
#include "platform/Types.h"

#include <array>
#include <optional>

namespace settings {

enum class Type {
    kSwitch, // number: 0 is off, any other one is on
    kNumber, // signed number
    kMask,   // sum of bits
    kText,
};

// A setting. All but texts (REG_SZ) are numbers of 32 bits (REG_DWORD).
struct Setting {
    const wchar_t* name = nullptr; // of its value; the key is named elsewhere
    Type type = Type::kNumber;
    LONG minimum = 0; // the range of sensible values, both ends included; amporasrv does not check it
    LONG maximum = 0;
    LONG defaultNumber = 0;               // when no hive has it
    const wchar_t* defaultText = nullptr; // the same of a text, else null
    bool isMachineOnly = false;           // looked up in the machine-wide hive alone, so that no user can override it
    bool needsRestart = false;            // read once, at the start of amporasrv, and not at each use
    const wchar_t* meaning = nullptr;     // without a full stop
};

// Of the main key.
inline constexpr Setting kEnable{.name = L"Enable",
                                 .type = Type::kSwitch,
                                 .maximum = 1,
                                 .isMachineOnly = true,
                                 .meaning = L"whether amporasrv updates the data files"};
inline constexpr Setting kLogLevel{.name = L"LogLevel",
                                   .type = Type::kMask,
                                   .maximum = 31,
                                   .needsRestart = true,
                                   .meaning = L"trace lines of amporasrv: 1 errors, 2 warnings, 8 trace, 16 entry and "
                                              L"exit of functions (with 8)"};
inline constexpr Setting kApiHost{.name = L"ApiHost",
                                  .type = Type::kText,
                                  .defaultText = L"127.0.0.1:8470",
                                  .meaning = L"host or host:port of the report API"};
inline constexpr Setting kInterval{.name = L"Interval",
                                   .minimum = 1,
                                   .maximum = 1440,
                                   .defaultNumber = 30,
                                   .meaning = L"minutes from the end of an update pass to the next one"};
inline constexpr Setting kIntervalMin{.name = L"IntervalMin",
                                      .minimum = -1440,
                                      .maximum = 1440,
                                      .defaultNumber = -15,
                                      .meaning = L"least number of minutes added to Interval at random"};
inline constexpr Setting kIntervalMax{.name = L"IntervalMax",
                                      .minimum = -1440,
                                      .maximum = 1440,
                                      .defaultNumber = 15,
                                      .meaning = L"greatest number of minutes added to Interval at random"};
inline constexpr Setting kFixedClock{.name = L"FixedClock",
                                     .maximum = 23,
                                     .defaultNumber = 9,
                                     .meaning = L"hour of the day of the first pass, when the start made none"};
inline constexpr Setting kFixedClockMin{.name = L"FixedClockMin",
                                        .minimum = -1440,
                                        .maximum = 1440,
                                        .meaning = L"least number of minutes added to FixedClock at random"};
inline constexpr Setting kFixedClockMax{.name = L"FixedClockMax",
                                        .minimum = -1440,
                                        .maximum = 1440,
                                        .defaultNumber = 30,
                                        .meaning = L"greatest number of minutes added to FixedClock at random"};

// Of a company's key. The default of SupportDataType is the company's own (defaultMask in format/Catalogue.h); here
// stands what most have.
inline constexpr Setting kSiteEnable{.name = L"Enable",
                                     .type = Type::kSwitch,
                                     .maximum = 1,
                                     .defaultNumber = 1,
                                     .meaning = L"whether the data files of this company are updated"};
inline constexpr Setting kSupportDataType{
    .name = L"SupportDataType",
    .type = Type::kMask,
    .maximum = 31,
    .defaultNumber = 31,
    .meaning = L"kinds of data to update: 1 instant, 2 actual, 4 estimated usage, 8 peak supply, 16 peak demand"};

// In the order of every list.
inline constexpr std::array kMainSettings = {kEnable,      kLogLevel,   kApiHost,       kInterval,     kIntervalMin,
                                             kIntervalMax, kFixedClock, kFixedClockMin, kFixedClockMax};
inline constexpr std::array kSiteSettings = {kSiteEnable, kSupportDataType};

// The keys, below the root of either hive. siteNumber: names the company.
inline constexpr wchar_t kMainKey[] = L"Software\\Halvex\\AmporaSrv";
CString SiteKey(int siteNumber);

// What a setting is set to.
struct Content {
    LONG number = 0; // of a kMask: its bits; 0 for a text
    CString text;    // empty for a number
};

// What one hive has to say about a setting in this key. Empty when it says nothing: the value is missing, unreadable,
// of another type or an empty text, or the setting is not looked up in this hive. Logs nothing; any thread.
std::optional<Content> StoredContent(platform::Hive hive, const CString& keyPath, const Setting& setting);

// The content that counts, and where it comes from.
struct ContentInForce {
    Content content;
    std::optional<platform::Hive> hive; // empty: no hive, it is the default
};

// Looks a setting of this key up as amporasrv does: the per-user hive, then the machine-wide one, then the default. The
// store is read at each call. Logs nothing; any thread.
ContentInForce FindContent(const CString& keyPath, const Setting& setting);
// The same with another default.
ContentInForce FindContent(const CString& keyPath, const Setting& setting, LONG defaultNumber);

} // namespace settings
