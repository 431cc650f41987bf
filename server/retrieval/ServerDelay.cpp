#include "server/retrieval/ServerDelay.h"

#include <algorithm>
#include <charconv>
#include <curl/curl.h>
#include <string_view>

namespace reportd {

using std::chrono::seconds;
using std::chrono::sys_seconds;

namespace {

seconds Bounded(seconds delay) { return std::clamp(delay, seconds(0), kLongestServerDelay); }

bool IsSpace(char character) { return character == ' ' || character == '\t'; }

std::string_view Trimmed(std::string_view text)
{
    while (!text.empty() && IsSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && IsSpace(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

// A number of seconds in decimal digits alone; more than a number can hold is the longest delay.
std::optional<seconds> ReadSeconds(std::string_view text)
{
    if (text.empty() || text.find_first_not_of("0123456789") != std::string_view::npos) {
        return std::nullopt;
    }
    std::int32_t value = 0;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), value);
    return end.ec == std::errc() ? Bounded(seconds(value)) : kLongestServerDelay;
}

std::optional<sys_seconds> ReadDate(const std::string& text)
{
    // It reads more forms than HTTP has, digits alone among them.
    const std::time_t moment = text.find(':') == std::string::npos ? -1 : curl_getdate(text.c_str(), nullptr);
    return moment < 0 ? std::nullopt : std::optional(sys_seconds(seconds(moment)));
}

std::optional<seconds> TimeUntil(const std::string& date, const DelayFields& fields, sys_seconds now)
{
    const std::optional<sys_seconds> until = ReadDate(date);
    return until ? std::optional(Bounded(*until - ReadDate(fields.date).value_or(now))) : std::nullopt;
}

std::string LowerCase(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
    });
    return lower;
}

struct CacheControl {
    bool mayBeKept = true;
    std::optional<seconds> maxAge = {};
};

CacheControl ReadCacheControl(const std::string& value)
{
    CacheControl control;
    std::string_view rest = value;
    while (!rest.empty()) {
        const std::size_t comma = std::min(rest.find(','), rest.size());
        const std::string directive = LowerCase(Trimmed(rest.substr(0, comma)));
        rest.remove_prefix(std::min(comma + 1, rest.size()));
        constexpr std::string_view kMaxAge = "max-age=";
        if (directive == "no-cache" || directive == "no-store") {
            control.mayBeKept = false;
        } else if (directive.starts_with(kMaxAge)) {
            control.maxAge = ReadSeconds(std::string_view(directive).substr(kMaxAge.size()));
        }
    }
    return control;
}

} // namespace

std::optional<seconds> ReadRetryAfter(const DelayFields& fields, sys_seconds now)
{
    const std::optional<seconds> delay = ReadSeconds(fields.retryAfter);
    return delay ? delay : TimeUntil(fields.retryAfter, fields, now);
}

std::optional<seconds> ReadFreshness(const DelayFields& fields, sys_seconds now)
{
    const CacheControl control = ReadCacheControl(fields.cacheControl);
    if (!control.mayBeKept) {
        return std::nullopt;
    }
    if (control.maxAge) {
        return Bounded(*control.maxAge - ReadSeconds(fields.age).value_or(seconds(0)));
    }
    return TimeUntil(fields.expires, fields, now);
}

} // namespace reportd
