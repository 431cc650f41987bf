// The settings as amporactl names, shows and reads them: those of config/SettingsTable.h, with those of the companies
// of format/Catalogue.h.
#pragma once

#include "config/SettingsTable.h"
#include "ctl/Json.h"
#include "format/Catalogue.h"

#include <optional>
#include <string>
#include <vector>

namespace ctl {

// One setting of one key.
struct KnownSetting {
    CString name;                                // "Interval", "tokyo.Enable"
    CString keyPath;                             // of its key, below the hive's root
    const catalogue::Company* company = nullptr; // whose it is; null: of the whole program
    settings::Setting setting;                   // with the company's own default
};

// All settings, in the order of every list.
std::vector<KnownSetting> KnownSettings();

// The setting of this name, without regard to case: as above, or as it is named in the store ("site\3\Enable"). None
// when there is none.
std::optional<KnownSetting> FindKnownSetting(const std::string& name);

// "0 or 1", "1 to 1440", "host or host:port".
CString RangeText(const settings::Setting& setting);

// "30", "127.0.0.1:8470".
CString ContentText(const settings::Setting& setting, const settings::Content& content);

// The words of the bits that are set: "err", "war", "tra", "scope", or the last words of the reports' paths; none for
// what is no kMask.
std::vector<CString> WordsOf(const settings::Setting& setting, const settings::Content& content);

// Where a value comes from: "user", "machine" or "default".
CString HiveText(std::optional<platform::Hive> hive);

CString DefaultText(const KnownSetting& known);

// As docs/amporactl.schema.json has it.
Json JsonSetting(const KnownSetting& known, const settings::ContentInForce& found);

// Reads a sensible value: a number; on or off for a kSwitch; "all", "none" or words with commas between them for a
// kMask; a host or host:port, as the program's HTTP client understands it, for ApiHost. Throws CFailure (misuse) with
// the reason otherwise.
settings::Content ParseContent(const KnownSetting& known, const std::string& text);

} // namespace ctl
