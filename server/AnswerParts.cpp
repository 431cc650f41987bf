#include "server/AnswerParts.h"

#include "server/Target.h"

#include <algorithm>

namespace reportd {
namespace {

constexpr std::string_view kNotKept = "Cache-Control: no-store\r\n";

std::string_view Trimmed(std::string_view text)
{
    constexpr std::string_view kBlanks = " \t";
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

bool IsSameWord(std::string_view one, std::string_view other)
{
    const auto lower = [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    };
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [&](char a, char b) { return lower(a) == lower(b); });
}

// The parameter q in thousandths; 0 when it is malformed.
int QualityOf(std::string_view parameters)
{
    while (!parameters.empty()) {
        std::string_view value = TakeUpTo(parameters, ';');
        const std::string_view name = Trimmed(TakeUpTo(value, '='));
        value = Trimmed(value);
        if (!IsSameWord(name, "q")) {
            continue;
        }
        if (value.starts_with('1')) {
            return 1000;
        }
        int quality = 0;
        for (std::size_t i = 2; i < 5; ++i) {
            const char digit = i < value.size() ? value[i] : '0';
            quality = quality * 10 + (digit >= '0' && digit <= '9' ? digit - '0' : 0);
        }
        return quality;
    }
    return 1000;
}

// The quality of a media type, whose range may be named in three ways, of which the closest one counts.
int QualityOf(std::string_view accept, std::string_view type, std::string_view anySubtype)
{
    int quality = 0;
    int closeness = 0;
    while (!accept.empty()) {
        std::string_view range = TakeUpTo(accept, ',');
        const std::string_view name = Trimmed(TakeUpTo(range, ';'));
        const int found = IsSameWord(name, type) ? 3 : IsSameWord(name, anySubtype) ? 2 : name == "*/*" ? 1 : 0;
        if (found > closeness) {
            closeness = found;
            quality = QualityOf(range);
        }
    }
    return quality;
}

} // namespace

WebAnswer PassingAnswer(unsigned status, std::string_view contentType, std::string body, std::string_view fields)
{
    return {.status = status,
            .contentType = contentType,
            .body = Share(std::move(body)),
            .fields = Share(std::string(kNotKept).append(fields))};
}

WebAnswer Problem(unsigned status, std::string_view title, std::string_view detail, std::string_view fields)
{
    std::string body = "{\"type\": \"about:blank\", \"title\": \"";
    body.append(title).append("\", \"status\": ").append(std::to_string(status));
    body.append(", \"detail\": \"").append(detail).append("\"}\n");
    return PassingAnswer(status, "application/problem+json", std::move(body), fields);
}

std::string ETagOf(const std::string& text)
{
    static constexpr std::string_view kDigits = "0123456789abcdef";
    std::string etag = "\"";
    for (const std::uint64_t number : {std::uint64_t{std::hash<std::string>{}(text)}, std::uint64_t{text.size()}}) {
        for (int shift = 60; shift >= 0; shift -= 4) {
            etag += kDigits[number >> shift & 0xF];
        }
    }
    return etag + '"';
}

bool IsNamed(std::string_view ifNoneMatch, std::string_view etag)
{
    while (!ifNoneMatch.empty()) {
        std::string_view tag = Trimmed(TakeUpTo(ifNoneMatch, ','));
        if (tag.starts_with("W/")) {
            tag.remove_prefix(2);
        }
        if (tag == "*" || tag == etag) {
            return true;
        }
    }
    return false;
}

bool PrefersTable(std::string_view accept)
{
    return QualityOf(accept, "text/csv", "text/*") > QualityOf(accept, "application/json", "application/*");
}

} // namespace reportd
