#include "server/retrieval/UrlPattern.h"

namespace reportd {

namespace {

// A number in decimal digits, with zeros in front.
std::string Digits(unsigned number, std::size_t width)
{
    std::string digits = std::to_string(number);
    return digits.size() < width ? std::string(width - digits.size(), '0') + digits : digits;
}

} // namespace

std::string UrlOfDay(std::string_view pattern, std::chrono::year_month_day date)
{
    std::string url;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const std::string_view field = pattern.substr(i, 2);
        if (field == "%Y") {
            url += Digits(static_cast<unsigned>(static_cast<int>(date.year())), 4);
        } else if (field == "%m") {
            url += Digits(static_cast<unsigned>(date.month()), 2);
        } else if (field == "%d") {
            url += Digits(static_cast<unsigned>(date.day()), 2);
        } else {
            url += pattern[i];
            continue;
        }
        ++i;
    }
    return url;
}

bool HasDailyUrl(std::string_view pattern) { return pattern.find("%d") != std::string_view::npos; }

} // namespace reportd
