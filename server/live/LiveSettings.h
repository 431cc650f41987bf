// Settings of live sources: where each company's files lie, how often they are asked for, where the figures are kept.
//
// The settings file is TOML; docs/ampora-reportd.md lists its keys, docs/ampora-reportd.toml shows each with its
// default.
#pragma once

#include "server/Figures.h"
#include "server/published/PublishedFile.h"

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace reportd {

// How one company's files are asked for.
struct CompanySettings {
    bool isEnabled = true;
    // Address of the file of today, and of one of a past day, as in server/retrieval/UrlPattern.h. Today's contains all
    // of %Y, %m and %d or none. A past one that ends in ".zip" is an archive of all days that have the same address and
    // contains %Y and %m; any other contains all three. Empty past one: past days cannot be fetched.
    std::string todayUrl = {};
    std::string pastUrl = {};
    std::chrono::minutes interval{5};       // between two polls at least, from 5 on
    std::chrono::seconds politeSecond{180}; // 0 to 299: when to poll after each fifth minute
    std::string agent = {};                 // what the program calls itself there; never empty
    ExtraHeadings extraHeadings = {};       // column headings that count besides the known ones
    // After how long a value of that series is normally there, counted from the end of its interval. Only series that
    // are measured have one.
    std::map<Series, std::chrono::minutes> expectedDelay = {};

    // How old the stamp of today's file may be: what is normal, that is the longest expected delay and one interval,
    // and half an hour more. An older one is a file that is not renewed any more.
    std::chrono::minutes FrozenAfter() const;

    bool operator==(const CompanySettings&) const = default;
};

struct LiveSettings {
    std::string listen;      // numeric address
    unsigned short port = 0; // 0: any free one
    // The file of the figures; next to it lies the folder of kept raw files. Empty when neither the settings nor the
    // environment say where.
    std::filesystem::path store = {};
    std::string authorityFile = {}; // PEM file of authorities that are trusted besides the system's; empty: none
    std::optional<std::chrono::days> retention = {}; // how many past days are kept; none: all
    std::chrono::minutes staleAfter{15};             // how old an unconfirmed figure may be before it is called stale
    std::chrono::minutes noneAfter{720};             // and before it is not given at all
    std::map<int, CompanySettings> companies = {};   // by site number, all that the catalogue has

    std::filesystem::path RawFolder() const { return store.parent_path() / "raw"; }

    bool operator==(const LiveSettings&) const = default;
};

// Settings that are not understood, or cannot be read. what(): "FILE:LINE: key: what is wrong", ready to be printed.
class CSettingsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Where the settings are unless the command line says otherwise.
inline constexpr const char* kDefaultSettingsFile = "/etc/ampora-reportd.toml";

// All functions may be called from any thread as long as nobody changes the environment.

// What holds without a file. The store is figures.sqlite in the first folder of $STATE_DIRECTORY, or else
// ampora-reportd/figures.sqlite below $XDG_STATE_HOME, or else below $HOME/.local/state.
LiveSettings DefaultLiveSettings();

// Reads a settings file of at most 1 MiB. What it leaves out is as in DefaultLiveSettings. Throws CSettingsError.
LiveSettings LoadLiveSettings(const std::filesystem::path& file);
// The same with the file's text at hand; name: what errors call it.
LiveSettings ParseLiveSettings(std::string_view text, const std::string& name);

} // namespace reportd
