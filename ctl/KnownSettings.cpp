#include "ctl/KnownSettings.h"

#include "ctl/CommandLine.h"
#include "ctl/Nearest.h"
#include "fetch/Url.h"
#include "platform/LetterCase.h"
#include "platform/Text.h"

#include <algorithm>
#include <charconv>

namespace ctl {

namespace {

using settings::Content;
using settings::Setting;
using settings::Type;

struct Bit {
    LONG bit;
    CString word;
};

std::vector<Bit> BitsOf(const Setting& setting)
{
    if (setting.name == CString(settings::kLogLevel.name)) {
        return {{1, L"err"}, {2, L"war"}, {8, L"tra"}, {16, L"scope"}};
    }
    std::vector<Bit> bits;
    bits.reserve(catalogue::kKinds.size());
    for (const catalogue::Kind& kind : catalogue::kKinds) {
        bits.push_back({static_cast<LONG>(kind.dataType), kind.word.Wide()});
    }
    return bits;
}

[[noreturn]] void Refuse(const KnownSetting& known, const std::string& text, const CString& reason)
{
    throw CFailure(known.name + L": '" + platform::DecodeUtf8(text) + L"' " + reason, kExitUsage);
}

// The number that the whole text is: decimal, or hexadecimal after "0x".
std::optional<LONG> NumberOf(std::string_view text)
{
    const bool isHex = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(isHex || text.starts_with('+') ? (isHex ? 2 : 1) : 0);
    LONG number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, isHex ? 16 : 10);
    // One that is too large is a number all the same, beyond every range.
    if (error == std::errc::result_out_of_range && end == text.data() + text.size()) {
        return text.starts_with('-') ? std::numeric_limits<LONG>::min() : std::numeric_limits<LONG>::max();
    }
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

LONG ParseWords(const KnownSetting& known, const std::string& text)
{
    const std::vector<Bit> bits = BitsOf(known.setting);
    LONG mask = 0;
    for (const std::string& given : CLI::detail::split(text, ',')) {
        const auto bit = std::ranges::find_if(
            bits, [&](const Bit& each) { return platform::EqualsWithoutCase(platform::EncodeUtf8(each.word), given); });
        if (bit == bits.end()) {
            std::vector<std::string> words = {"all", "none"};
            std::ranges::transform(bits, std::back_inserter(words),
                                   [](const Bit& each) { return platform::EncodeUtf8(each.word); });
            Refuse(known, given,
                   L"is not one of " + platform::DecodeUtf8(CLI::detail::join(words, ", ") + Suggestion(given, words)));
        }
        mask |= bit->bit;
    }
    return mask;
}

LONG ParseMask(const KnownSetting& known, const std::string& text)
{
    if (platform::EqualsWithoutCase(text, "none")) {
        return 0;
    }
    if (platform::EqualsWithoutCase(text, "all")) {
        LONG all = 0;
        for (const Bit& bit : BitsOf(known.setting)) {
            all |= bit.bit;
        }
        return all;
    }
    return ParseWords(known, text);
}

LONG ParseNumber(const KnownSetting& known, const std::string& text)
{
    if (const std::optional<LONG> number = NumberOf(text)) {
        if (*number < known.setting.minimum || *number > known.setting.maximum) {
            Refuse(known, text, L"is not in the range " + RangeText(known.setting));
        }
        return *number;
    }
    if (known.setting.type == Type::kMask) {
        return ParseMask(known, text);
    }
    if (known.setting.type == Type::kNumber) {
        Refuse(known, text, L"is not a number, " + RangeText(known.setting));
    }
    const bool isOn = platform::EqualsWithoutCase(text, "on");
    if (!isOn && !platform::EqualsWithoutCase(text, "off")) {
        Refuse(known, text, L"is not " + RangeText(known.setting) + L", on or off");
    }
    return isOn ? 1 : 0;
}

CString ParseHost(const KnownSetting& known, const std::string& text)
{
    CString host = platform::DecodeUtf8(text);
    UrlParts parts;
    // What would be the path, or go beyond it, is no part of the setting.
    if (host.find_first_of(L"/?#") != CString::npos || !SplitUrl(L"http://" + host + L"/", &parts)) {
        Refuse(known, text, L"is not " + RangeText(known.setting));
    }
    return host;
}

Json JsonContent(const KnownSetting& known, const CString& text)
{
    return known.setting.type == Type::kText ? Json(platform::EncodeUtf8(text)) : Json(std::stoll(text));
}

} // namespace

std::vector<KnownSetting> KnownSettings()
{
    std::vector<KnownSetting> all;
    all.reserve(settings::kMainSettings.size() + catalogue::kCompanies.size() * settings::kSiteSettings.size());
    for (const Setting& setting : settings::kMainSettings) {
        all.push_back({setting.name, settings::kMainKey, nullptr, setting});
    }
    for (const catalogue::Company& company : catalogue::kCompanies) {
        for (Setting setting : settings::kSiteSettings) {
            if (setting.type == Type::kMask) {
                setting.defaultNumber = static_cast<LONG>(company.defaultMask);
            }
            all.push_back({CString(company.key.Wide()) + L"." + setting.name, settings::SiteKey(company.siteNumber),
                           &company, setting});
        }
    }
    return all;
}

std::optional<KnownSetting> FindKnownSetting(const std::string& name)
{
    const CString wide = platform::DecodeUtf8(name);
    const CString inStore = CString(settings::kMainKey) + L"\\" + wide;
    for (KnownSetting& known : KnownSettings()) {
        if (platform::EqualsWithoutCase(wide, known.name) ||
            platform::EqualsWithoutCase(inStore, known.keyPath + L"\\" + known.setting.name)) {
            return std::move(known);
        }
    }
    return std::nullopt;
}

CString RangeText(const Setting& setting)
{
    if (setting.type == Type::kText) {
        return L"host or host:port";
    }
    return platform::FormatText(setting.type == Type::kSwitch ? L"%d or %d" : L"%d to %d", setting.minimum,
                                setting.maximum);
}

CString ContentText(const Setting& setting, const Content& content)
{
    if (setting.type == Type::kText) {
        return content.text;
    }
    // A mask has no sign.
    return setting.type == Type::kMask ? platform::FormatText(L"%u", static_cast<DWORD>(content.number))
                                       : platform::FormatText(L"%d", content.number);
}

std::vector<CString> WordsOf(const Setting& setting, const Content& content)
{
    std::vector<CString> words;
    if (setting.type == Type::kMask) {
        for (const Bit& bit : BitsOf(setting)) {
            if ((content.number & bit.bit) != 0) {
                words.push_back(bit.word);
            }
        }
    }
    return words;
}

Content ParseContent(const KnownSetting& known, const std::string& text)
{
    if (known.setting.type == Type::kText) {
        return {0, ParseHost(known, text)};
    }
    return {ParseNumber(known, text), {}};
}

CString HiveText(std::optional<platform::Hive> hive)
{
    return !hive ? L"default" : *hive == platform::Hive::kPerUser ? L"user" : L"machine";
}

CString DefaultText(const KnownSetting& known)
{
    return ContentText(known.setting, {known.setting.defaultNumber,
                                       known.setting.defaultText == nullptr ? L"" : known.setting.defaultText});
}

Json JsonSetting(const KnownSetting& known, const settings::ContentInForce& found)
{
    const Setting& setting = known.setting;
    Json json = {{"name", platform::EncodeUtf8(known.name)},
                 {"value", JsonContent(known, ContentText(setting, found.content))},
                 {"hive", platform::EncodeUtf8(HiveText(found.hive))},
                 {"default", JsonContent(known, DefaultText(known))}};
    if (setting.type == Type::kMask) {
        json["words"] = Json::array();
        for (const CString& word : WordsOf(setting, found.content)) {
            json["words"].push_back(platform::EncodeUtf8(word));
        }
    }
    if (setting.type != Type::kText) {
        json["minimum"] = setting.minimum;
        json["maximum"] = setting.maximum;
    }
    json["meaning"] = platform::EncodeUtf8(setting.meaning);
    json["machineOnly"] = setting.isMachineOnly;
    json["needsRestart"] = setting.needsRestart;
    json["key"] = platform::EncodeUtf8(known.keyPath);
    json["valueName"] = platform::EncodeUtf8(setting.name);
    return json;
}

} // namespace ctl
