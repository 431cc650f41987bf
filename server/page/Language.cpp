#include "server/page/Language.h"

#include <algorithm>
#include <string>

namespace reportd {
namespace {

std::string_view Trimmed(std::string_view text)
{
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
        text.remove_suffix(1);
    }
    return text;
}

// Takes what stands before the separator, or all, from the front of a text.
std::string_view TakeUpTo(std::string_view& text, char separator)
{
    const std::size_t end = std::min(text.find(separator), text.size());
    const std::string_view taken = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return Trimmed(taken);
}

bool IsLanguage(std::string_view range, std::string_view code)
{
    return range.size() >= code.size() && (range[0] | 0x20) == code[0] && (range[1] | 0x20) == code[1] &&
           (range.size() == code.size() || range[code.size()] == '-');
}

// The weight in thousandths of the parameters of a language range: 1000 without one, 0 for one that is malformed.
int WeightOf(std::string_view parameters)
{
    constexpr std::string_view kZero = "0.000";
    if (parameters.empty()) {
        return 1000;
    }
    if (!parameters.starts_with("q=") && !parameters.starts_with("Q=")) {
        return 0;
    }
    parameters.remove_prefix(2);
    if (parameters.size() > kZero.size()) {
        return 0;
    }
    std::string number(parameters);
    number += kZero.substr(number.size());
    if (number[1] != '.') {
        return 0;
    }
    number.erase(1, 1);
    if (number.find_first_not_of("0123456789") != std::string::npos) {
        return 0;
    }
    const int weight = std::stoi(number);
    return weight > 1000 ? 0 : weight;
}

} // namespace

Language LanguageOf(std::string_view acceptLanguage, std::string_view queryLanguage)
{
    if (queryLanguage == CodeOf(Language::kEnglish)) {
        return Language::kEnglish;
    }
    if (queryLanguage == CodeOf(Language::kJapanese)) {
        return Language::kJapanese;
    }
    Language preferred = Language::kEnglish;
    int highest = 0;
    while (!acceptLanguage.empty()) {
        std::string_view parameters = TakeUpTo(acceptLanguage, ',');
        const std::string_view range = TakeUpTo(parameters, ';');
        const int weight = WeightOf(Trimmed(parameters));
        for (const Language language : {Language::kEnglish, Language::kJapanese}) {
            if (weight > highest && IsLanguage(range, CodeOf(language))) {
                preferred = language;
                highest = weight;
            }
        }
    }
    return preferred;
}

std::string_view CodeOf(Language language) { return language == Language::kJapanese ? "ja" : "en"; }

} // namespace reportd
