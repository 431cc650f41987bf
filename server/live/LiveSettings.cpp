#include "server/live/LiveSettings.h"

#include "server/live/TomlText.h"
#include "server/live/WholeFile.h"
#include "server/live/Wording.h"
#include "server/Options.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <toml++/toml.h>
#include <utility>

namespace reportd {
namespace {

// --- Defaults -------------------------------------------------------------------------------------------------------

struct CompanyDefaults {
    int siteNumber;
    const char* todayUrl;
    const char* pastUrl;
    std::chrono::seconds politeSecond;
    minutes measuredDelay; // of the values every five minutes
    const char* agent;
};

constexpr const char* kAgent = "ampora-reportd/" AMPORA_VERSION;
// For a server that refuses agents that do not look like a browser's.
constexpr const char* kBrowserLikeAgent = "Mozilla/5.0 (compatible; ampora-reportd/" AMPORA_VERSION ")";

constexpr std::array kDefaults = {
    CompanyDefaults{catalogue::kTokyo, "https://www.tepco.co.jp/forecast/html/images/juyo-d1-j.csv",
                    "https://www.tepco.co.jp/forecast/html/images/%Y%m_power_usage.zip", std::chrono::seconds{180},
                    minutes{20}, kAgent},
    CompanyDefaults{catalogue::kTohoku, "https://setsuden.nw.tohoku-epco.co.jp/common/demand/juyo_02_%Y%m%d.csv",
                    "https://setsuden.nw.tohoku-epco.co.jp/common/demand/juyo_02_%Y%m%d.csv", std::chrono::seconds{180},
                    minutes{20}, kAgent},
    CompanyDefaults{catalogue::kChubu, "https://powergrid.chuden.co.jp/denki_yoho_content_data/juyo_cepco003.csv",
                    "https://powergrid.chuden.co.jp/denki_yoho_content_data/download_csv/%Y%m_power_usage.zip",
                    std::chrono::seconds{0}, minutes{20}, kAgent},
    CompanyDefaults{catalogue::kKansai, "https://www.kansai-td.co.jp/yamasou/juyo_06_%Y%m%d.csv",
                    "https://www.kansai-td.co.jp/yamasou/%Y%m_jisseki.zip", std::chrono::seconds{50}, minutes{25},
                    kAgent},
    CompanyDefaults{catalogue::kKyushu, "https://www.kyuden.co.jp/td_power_usages/csv/juyo-hourly-%Y%m%d.csv",
                    "https://www.kyuden.co.jp/td_power_usages/csv/juyo-hourly-%Y%m%d.csv", std::chrono::seconds{270},
                    minutes{20}, kBrowserLikeAgent},
};
static_assert(std::all_of(catalogue::kCompanies.begin(), catalogue::kCompanies.end(), [](const auto& company) {
    return std::any_of(kDefaults.begin(), kDefaults.end(),
                       [&](const CompanyDefaults& defaults) { return defaults.siteNumber == company.siteNumber; });
}));

constexpr minutes kHourlyDelay{10};
constexpr std::array kFiveMinuteSeries = {Series::kInstantUsage, Series::kSolar, Series::kWind};

CompanySettings MakeCompanySettings(const CompanyDefaults& defaults)
{
    CompanySettings settings;
    settings.todayUrl = defaults.todayUrl;
    settings.pastUrl = defaults.pastUrl;
    settings.politeSecond = defaults.politeSecond;
    settings.agent = defaults.agent;
    settings.expectedDelay[Series::kActualUsage] = kHourlyDelay;
    for (const Series series : kFiveMinuteSeries) {
        settings.expectedDelay[series] = defaults.measuredDelay;
    }
    return settings;
}

// A variable's value; empty without one.
std::string Variable(const char* name)
{
    const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nothing changes the environment
    return value == nullptr ? "" : value;
}

std::filesystem::path DefaultStore()
{
    constexpr const char* kFileName = "figures.sqlite";
    const std::string service = Variable("STATE_DIRECTORY"); // several are separated by colons
    if (!service.empty()) {
        return std::filesystem::path(service.substr(0, service.find(':'))) / kFileName;
    }
    const std::string state = Variable("XDG_STATE_HOME");
    if (state.starts_with('/')) { // a relative one is to be ignored
        return std::filesystem::path(state) / "ampora-reportd" / kFileName;
    }
    const std::string home = Variable("HOME");
    return home.empty() ? std::filesystem::path()
                        : std::filesystem::path(home) / ".local" / "state" / "ampora-reportd" / kFileName;
}

// --- Reading --------------------------------------------------------------------------------------------------------

struct Member;

// One value of the file: what it is, where it stands, and how it is called in messages.
class CValue {
public:
    CValue(const std::string& file, std::string key, const toml::node& node)
        : m_file(file), m_key(std::move(key)), m_node(node)
    {
    }

    [[noreturn]] void Refuse(const std::string& what) const
    {
        throw CSettingsError(m_file + ":" + std::to_string(m_node.source().begin.line) + ": " + Shown(m_key) + ": " +
                             what);
    }

    std::string Text() const
    {
        const auto* const text = m_node.as_string();
        if (text == nullptr) {
            Refuse("needs a text in quotes");
        }
        const auto isControl = [](unsigned char c) { return c < 0x20 || c == 0x7F; };
        if (std::any_of(text->get().begin(), text->get().end(), isControl)) {
            Refuse("must not contain control characters");
        }
        return text->get();
    }

    bool Flag() const
    {
        const auto* const flag = m_node.as_boolean();
        if (flag == nullptr) {
            Refuse("needs true or false");
        }
        return flag->get();
    }

    std::int64_t Number(std::int64_t low, std::int64_t high) const
    {
        const auto* const number = m_node.as_integer();
        if (number == nullptr || number->get() < low || number->get() > high) {
            Refuse("needs a whole number from " + std::to_string(low) + " to " + std::to_string(high));
        }
        return number->get();
    }

    std::vector<CValue> Elements() const
    {
        const toml::array* const array = m_node.as_array();
        if (array == nullptr) {
            Refuse("needs a list of texts such as [\"...\"]");
        }
        std::vector<CValue> elements;
        for (const toml::node& element : *array) {
            elements.emplace_back(m_file, m_key, element);
        }
        return elements;
    }

    // The values of a table by their keys, in alphabetical order.
    std::vector<Member> Members() const;

private:
    const std::string& m_file;
    std::string m_key;
    const toml::node& m_node;
};

struct Member {
    std::string name;
    CValue value;
};

std::vector<Member> CValue::Members() const
{
    const toml::table* const table = m_node.as_table();
    if (table == nullptr) {
        Refuse("needs keys of its own, such as [" + Shown(m_key) + "] above them");
    }
    std::vector<Member> members;
    for (const auto& [key, node] : *table) {
        const std::string name(key.str());
        members.push_back({name, CValue(m_file, m_key.empty() ? name : m_key + "." + name, node)});
    }
    return members;
}

// What a key does with its value.
template <class Settings>
struct Key {
    const char* name;
    std::function<void(const CValue&, Settings*)> take;
};

template <class Names>
std::string Listed(const Names& all, const std::function<std::string(const typename Names::value_type&)>& nameOf)
{
    std::string text;
    for (const auto& one : all) {
        text += (text.empty() ? "" : ", ") + nameOf(one);
    }
    return text;
}

template <class Settings>
void ReadKeys(const CValue& table, const std::vector<Key<Settings>>& keys, Settings* settings)
{
    for (const Member& member : table.Members()) {
        const auto key = std::find_if(keys.begin(), keys.end(),
                                      [&](const Key<Settings>& candidate) { return candidate.name == member.name; });
        if (key == keys.end()) {
            member.value.Refuse("there is no such key; there are " +
                                Listed(keys, [](const Key<Settings>& known) -> std::string { return known.name; }));
        }
        key->take(member.value, settings);
    }
}

// Reads a table whose keys are series.
void ReadSeries(const CValue& table, const std::function<void(const CValue&, Series)>& take)
{
    for (const Member& member : table.Members()) {
        const auto* const info = std::find_if(kAllSeries.begin(), kAllSeries.end(), [&](const SeriesInfo& candidate) {
            return candidate.key == member.name;
        });
        if (info == kAllSeries.end()) {
            member.value.Refuse("there is no such series; there are " +
                                Listed(kAllSeries, [](const SeriesInfo& known) { return std::string(known.key); }));
        }
        take(member.value, info->series);
    }
}

std::string ReadAddress(const CValue& value)
{
    std::string text = value.Text();
    if (text.empty() || text.find_first_not_of("0123456789abcdefABCDEF.:") != std::string::npos) {
        value.Refuse("needs a numeric address such as \"127.0.0.1\" or \"::1\"");
    }
    return text;
}

std::string ReadFileName(const CValue& value)
{
    std::string text = value.Text();
    if (!text.starts_with('/') || text.ends_with('/')) {
        value.Refuse("needs the whole path of a file, from / on");
    }
    return text;
}

std::string ReadAgent(const CValue& value)
{
    std::string text = value.Text();
    const auto isPrintable = [](unsigned char c) { return c >= 0x20 && c < 0x7F; };
    if (text.empty() || text.size() > 200 || !std::all_of(text.begin(), text.end(), isPrintable) ||
        text.starts_with(' ') || text.ends_with(' ')) {
        value.Refuse("needs 1 to 200 ASCII characters, no space at either end");
    }
    return text;
}

// The rest of an address behind "http://" or "https://"; empty for any other scheme.
std::string_view BehindScheme(std::string_view url)
{
    for (const std::string_view scheme : {"http://", "https://"}) {
        if (url.starts_with(scheme)) {
            return url.substr(scheme.size());
        }
    }
    return {};
}

void CheckUrl(const CValue& value, const std::string& url)
{
    constexpr std::size_t kLongest = 2000;
    const std::string_view rest = BehindScheme(url);
    const std::string_view host = rest.substr(0, rest.find_first_of("/?"));
    if (host.empty() || host.find_first_of("@%") != std::string_view::npos) {
        value.Refuse("needs an address that begins with http:// or https:// and a host, without a user name");
    }
    const auto isAllowed = [](unsigned char c) {
        return c > 0x20 && c < 0x7F &&
               std::string_view("\"#<>\\^`{|}").find(static_cast<char>(c)) == std::string_view::npos;
    };
    if (url.size() > kLongest || !std::all_of(url.begin(), url.end(), isAllowed)) {
        value.Refuse("needs an address of at most 2000 characters that addresses may contain");
    }
    for (std::size_t at = url.find('%'); at != std::string::npos; at = url.find('%', at + 2)) {
        if (at + 1 == url.size() || std::string_view("Ymd").find(url[at + 1]) == std::string_view::npos) {
            value.Refuse("% may be followed by Y, m or d only (year, month and day)");
        }
    }
}

// How many of %Y, %m and %d an address contains.
int CountDateParts(const std::string& url)
{
    int count = 0;
    for (const char* const part : {"%Y", "%m", "%d"}) {
        count += url.find(part) != std::string::npos ? 1 : 0;
    }
    return count;
}

std::string ReadTodayUrl(const CValue& value)
{
    std::string url = value.Text();
    CheckUrl(value, url);
    const int parts = CountDateParts(url);
    if (parts != 0 && parts != 3) {
        value.Refuse("needs all of %Y, %m and %d or none of them");
    }
    return url;
}

std::string ReadPastUrl(const CValue& value)
{
    std::string url = value.Text();
    if (url.empty()) {
        return url;
    }
    CheckUrl(value, url);
    const bool isArchive = url.ends_with(".zip");
    const bool hasMonth = url.find("%Y") != std::string::npos && url.find("%m") != std::string::npos;
    if (isArchive && !hasMonth) {
        value.Refuse("an archive's address needs %Y and %m");
    }
    if (!isArchive && CountDateParts(url) != 3) {
        value.Refuse("needs %Y, %m and %d, or %Y and %m for an archive that ends in .zip");
    }
    return url;
}

std::vector<std::string> ReadHeadings(const CValue& value)
{
    constexpr std::size_t kMost = 16;
    constexpr std::size_t kLongest = 200;
    std::vector<std::string> headings;
    for (const CValue& element : value.Elements()) {
        headings.push_back(element.Text());
        if (headings.back().empty() || headings.back().size() > kLongest || headings.size() > kMost) {
            element.Refuse("needs at most 16 headings of 1 to 200 bytes");
        }
    }
    return headings;
}

void ReadDelay(const CValue& value, Series series, CompanySettings* company)
{
    if (!company->expectedDelay.contains(series)) { // the defaults have those that are measured
        value.Refuse("only measured series have a delay");
    }
    company->expectedDelay[series] = minutes(value.Number(0, 720));
}

const std::vector<Key<CompanySettings>>& CompanyKeys()
{
    using Settings = CompanySettings;
    static const std::vector<Key<Settings>> kKeys = {
        {"enabled", [](const CValue& value, Settings* company) { company->isEnabled = value.Flag(); }},
        {"today_url", [](const CValue& value, Settings* company) { company->todayUrl = ReadTodayUrl(value); }},
        {"past_url", [](const CValue& value, Settings* company) { company->pastUrl = ReadPastUrl(value); }},
        {"interval_minutes",
         [](const CValue& value, Settings* company) { company->interval = minutes(value.Number(5, 1440)); }},
        {"polite_second",
         [](const CValue& value, Settings* company) {
             company->politeSecond = std::chrono::seconds(value.Number(0, 299));
         }},
        {"agent", [](const CValue& value, Settings* company) { company->agent = ReadAgent(value); }},
        {"headings",
         [](const CValue& table, Settings* company) {
             ReadSeries(table, [company](const CValue& value, Series series) {
                 company->extraHeadings.names[series] = ReadHeadings(value);
             });
         }},
        {"expected_delay_minutes",
         [](const CValue& table, Settings* company) {
             ReadSeries(table, [company](const CValue& value, Series series) { ReadDelay(value, series, company); });
         }},
    };
    return kKeys;
}

void ReadCompanies(const CValue& table, LiveSettings* settings)
{
    for (const Member& member : table.Members()) {
        const auto* const company =
            std::find_if(catalogue::kCompanies.begin(), catalogue::kCompanies.end(),
                         [&](const catalogue::Company& candidate) { return candidate.key.Narrow() == member.name; });
        if (company == catalogue::kCompanies.end()) {
            member.value.Refuse("there is no such company; there are " +
                                Listed(catalogue::kCompanies, [](const catalogue::Company& known) {
                                    return std::string(known.key.Narrow());
                                }));
        }
        ReadKeys(member.value, CompanyKeys(), &settings->companies.at(company->siteNumber));
    }
}

const std::vector<Key<LiveSettings>>& GeneralKeys()
{
    using Settings = LiveSettings;
    static const std::vector<Key<Settings>> kKeys = {
        {"listen", [](const CValue& value, Settings* settings) { settings->listen = ReadAddress(value); }},
        {"port", [](const CValue& value,
                    Settings* settings) { settings->port = static_cast<unsigned short>(value.Number(0, 65535)); }},
        {"store", [](const CValue& value, Settings* settings) { settings->store = ReadFileName(value); }},
        {"authority_file",
         [](const CValue& value, Settings* settings) {
             settings->authorityFile = value.Text().empty() ? "" : ReadFileName(value);
         }},
        {"retention_days", [](const CValue& value,
                              Settings* settings) { settings->retention = std::chrono::days(value.Number(1, 36500)); }},
        {"stale_after_minutes",
         [](const CValue& value, Settings* settings) { settings->staleAfter = minutes(value.Number(1, 525600)); }},
        {"none_after_minutes",
         [](const CValue& value, Settings* settings) { settings->noneAfter = minutes(value.Number(1, 525600)); }},
        {"company", ReadCompanies},
    };
    return kKeys;
}

toml::table ParseText(std::string_view text, const std::string& name)
{
    if (const std::optional<std::size_t> line = FindStrayCharacter(text)) {
        throw CSettingsError(
            name + ":" + std::to_string(*line) +
            ": characters beyond ASCII belong into comments and texts in quotes, on one line and with a "
            "blank before them");
    }
    try {
        return toml::parse(text);
    } catch (const toml::parse_error& error) {
        throw CSettingsError(name + ":" + std::to_string(error.source().begin.line) + ": " +
                             Shown(error.description()));
    }
}

} // namespace

minutes CompanySettings::FrozenAfter() const
{
    constexpr minutes kGrace{30};
    minutes longest{0};
    for (const auto& [series, delay] : expectedDelay) {
        longest = std::max(longest, delay);
    }
    return longest + interval + kGrace;
}

LiveSettings DefaultLiveSettings()
{
    LiveSettings settings;
    settings.listen = kDefaultListen;
    settings.port = kDefaultPort;
    settings.store = DefaultStore();
    for (const CompanyDefaults& defaults : kDefaults) {
        settings.companies[defaults.siteNumber] = MakeCompanySettings(defaults);
    }
    return settings;
}

LiveSettings LoadLiveSettings(const std::filesystem::path& file)
{
    std::string text;
    try {
        text = ReadWholeFile(file, 1);
    } catch (const std::runtime_error& error) {
        throw CSettingsError(file.string() + ": " + error.what());
    }
    return ParseLiveSettings(text, file.string());
}

LiveSettings ParseLiveSettings(std::string_view text, const std::string& name)
{
    const toml::table table = ParseText(text, name);
    LiveSettings settings = DefaultLiveSettings();
    ReadKeys(CValue(name, "", table), GeneralKeys(), &settings);
    if (settings.noneAfter < settings.staleAfter) { // the figures would be gone before they are old
        // One of the two is in the file, for the defaults are in order.
        const char* const key = table.contains("none_after_minutes") ? "none_after_minutes" : "stale_after_minutes";
        CValue(name, key, *table.get(key)).Refuse("none_after_minutes must not be less than stale_after_minutes");
    }
    return settings;
}

} // namespace reportd
