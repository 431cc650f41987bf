#include "server/published/Cells.h"

#include <charconv>

namespace reportd {
namespace {

// Digits only, at least and at most so many.
std::optional<std::int64_t> Digits(std::string_view text, std::size_t least, std::size_t most)
{
    if (text.size() < least || text.size() > most || text.find_first_not_of("0123456789") != std::string_view::npos) {
        return {};
    }
    std::int64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

// The text up to a separator, which is taken off with it; the whole text when there is none.
std::string_view TakeUpTo(char separator, std::string_view& text)
{
    const std::size_t end = text.find(separator);
    const std::string_view taken = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    return taken;
}

} // namespace

std::optional<std::int64_t> WholeNumber(std::string_view cell)
{
    const bool isNegative = cell.starts_with('-');
    const std::optional<std::int64_t> number = Digits(cell.substr(isNegative ? 1 : 0), 1, 12);
    return number && isNegative ? -*number : number;
}

std::optional<std::chrono::year_month_day> DateOf(std::string_view cell)
{
    const auto year = Digits(TakeUpTo('/', cell), 4, 4);
    const auto month = Digits(TakeUpTo('/', cell), 1, 2);
    const auto day = Digits(cell, 1, 2);
    if (!year || !month || !day) {
        return {};
    }
    const std::chrono::year_month_day date{std::chrono::year{static_cast<int>(*year)},
                                           std::chrono::month{static_cast<unsigned>(*month)},
                                           std::chrono::day{static_cast<unsigned>(*day)}};
    return date.ok() ? std::optional(date) : std::nullopt;
}

std::optional<minutes> TimeOf(std::string_view cell)
{
    const auto hour = Digits(TakeUpTo(':', cell), 1, 2);
    const auto minute = Digits(cell, 2, 2);
    if (!hour || !minute || *hour > 23 || *minute > 59) {
        return {};
    }
    return hours{*hour} + minutes{*minute};
}

std::optional<hours> SlotOf(std::string_view cell)
{
    const std::string_view start = TakeUpTo('~', cell);
    const auto from = TimeOf(start);
    if (!from || *from % hours{1} != minutes{0}) {
        return {};
    }
    const auto hour = std::chrono::duration_cast<hours>(*from);
    if (hour == hours{23} && cell == "24:00") {
        return hour;
    }
    return TimeOf(cell) == (hour + hours{1}) % hours{24} ? std::optional(hour) : std::nullopt;
}

} // namespace reportd
