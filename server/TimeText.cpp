#include "server/TimeText.h"

#include <algorithm>
#include <charconv>

namespace reportd {
namespace {

// A number of so many digits, with zeros before it.
void PutNumber(std::string& text, unsigned number, std::size_t digits)
{
    const std::size_t start = text.size();
    text.append(digits, '0');
    for (std::size_t i = start + digits; i > start; number /= 10) {
        text[--i] = static_cast<char>('0' + number % 10);
    }
}

void PutClock(std::string& text, const std::chrono::hh_mm_ss<std::chrono::seconds>& clock)
{
    PutNumber(text, static_cast<unsigned>(clock.hours().count()), 2);
    text += ':';
    PutNumber(text, static_cast<unsigned>(clock.minutes().count()), 2);
    text += ':';
    PutNumber(text, static_cast<unsigned>(clock.seconds().count()), 2);
}

// A number of exactly so many decimal digits, off the front.
std::optional<int> TakeNumber(std::string_view& text, std::size_t digits)
{
    const std::string_view number = text.substr(0, digits);
    int value = 0;
    if (number.size() != digits ||
        !std::all_of(number.begin(), number.end(), [](char c) { return c >= '0' && c <= '9'; }) ||
        std::from_chars(number.data(), number.data() + number.size(), value).ec != std::errc()) {
        return {};
    }
    text.remove_prefix(digits);
    return value;
}

bool TakeWord(std::string_view& text, std::string_view word)
{
    if (!text.starts_with(word)) {
        return false;
    }
    text.remove_prefix(word.size());
    return true;
}

std::optional<std::chrono::year_month_day> TakeDate(std::string_view& text)
{
    const std::optional<int> year = TakeNumber(text, 4);
    const bool afterYear = TakeWord(text, "-");
    const std::optional<int> month = TakeNumber(text, 2);
    const bool afterMonth = TakeWord(text, "-");
    const std::optional<int> day = TakeNumber(text, 2);
    if (!year || !afterYear || !month || !afterMonth || !day) {
        return {};
    }
    const std::chrono::year_month_day date{std::chrono::year{*year}, std::chrono::month{static_cast<unsigned>(*month)},
                                           std::chrono::day{static_cast<unsigned>(*day)}};
    return date.ok() ? std::optional(date) : std::nullopt;
}

// Two digits below a limit, off the front.
std::optional<int> TakeBelow(std::string_view& text, int limit)
{
    const std::optional<int> number = TakeNumber(text, 2);
    return number && *number < limit ? number : std::nullopt;
}

} // namespace

void PutDate(std::string& text, std::chrono::year_month_day date)
{
    PutNumber(text, static_cast<unsigned>(static_cast<int>(date.year())), 4);
    text += '-';
    PutNumber(text, static_cast<unsigned>(date.month()), 2);
    text += '-';
    PutNumber(text, static_cast<unsigned>(date.day()), 2);
}

void PutTime(std::string& text, LocalTime time)
{
    const auto day = std::chrono::floor<std::chrono::days>(time);
    PutDate(text, std::chrono::year_month_day{day});
    text += 'T';
    PutClock(text, std::chrono::hh_mm_ss{time - day});
}

void PutJapanTime(std::string& text, LocalTime time)
{
    PutTime(text, time);
    text += "+09:00";
}

std::string DateText(std::chrono::year_month_day date)
{
    std::string text;
    PutDate(text, date);
    return text;
}

std::string JapanTimeText(LocalTime time)
{
    std::string text;
    PutJapanTime(text, time);
    return text;
}

std::string HttpDateText(std::chrono::sys_seconds moment)
{
    static constexpr std::string_view kDays = "SunMonTueWedThuFriSat";
    static constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const auto day = std::chrono::floor<std::chrono::days>(moment);
    const std::chrono::year_month_day date{day};
    std::string text{kDays.substr(std::size_t{3} * std::chrono::weekday{day}.c_encoding(), 3)};
    text += ", ";
    PutNumber(text, static_cast<unsigned>(date.day()), 2);
    text += ' ';
    text += kMonths.substr(std::size_t{3} * (static_cast<unsigned>(date.month()) - 1), 3);
    text += ' ';
    PutNumber(text, static_cast<unsigned>(static_cast<int>(date.year())), 4);
    text += ' ';
    PutClock(text, std::chrono::hh_mm_ss{moment - day});
    return text + " GMT";
}

std::optional<std::chrono::year_month_day> ParseDate(std::string_view text)
{
    const std::optional<std::chrono::year_month_day> date = TakeDate(text);
    return text.empty() ? date : std::nullopt;
}

std::optional<LocalTime> ParseJapanTime(std::string_view text)
{
    const std::optional<std::chrono::year_month_day> date = TakeDate(text);
    if (!date || !TakeWord(text, "T")) {
        return {};
    }
    const std::optional<int> hour = TakeBelow(text, 24);
    const bool afterHour = TakeWord(text, ":");
    const std::optional<int> minute = TakeBelow(text, 60);
    const std::optional<int> second = TakeWord(text, ":") ? TakeBelow(text, 60) : 0;
    TakeWord(text, "+09:00");
    if (!hour || !afterHour || !minute || !second || !text.empty()) {
        return {};
    }
    return std::chrono::local_days{*date} + std::chrono::hours{*hour} + std::chrono::minutes{*minute} +
           std::chrono::seconds{*second};
}

} // namespace reportd
