#include "server/live/Intake.h"

#include "server/published/PublishedFile.h"
#include "server/store/FigureStore.h"

#include <algorithm>

namespace reportd {
namespace {

constexpr std::size_t kDayLength = 8;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

unsigned NumberOf(std::string_view digits)
{
    unsigned number = 0;
    for (const char digit : digits) {
        number = number * 10 + static_cast<unsigned>(digit - '0');
    }
    return number;
}

std::optional<std::chrono::year_month_day> DayOf(std::string_view digits)
{
    if (digits.size() != kDayLength || !digits.starts_with("20")) {
        return std::nullopt;
    }
    const std::chrono::year_month_day date{std::chrono::year(static_cast<int>(NumberOf(digits.substr(0, 4)))),
                                           std::chrono::month(NumberOf(digits.substr(4, 2))),
                                           std::chrono::day(NumberOf(digits.substr(6, 2)))};
    return date.ok() ? std::optional(date) : std::nullopt;
}

} // namespace

Intake TakeSavedFile(CFigureStore& store, int siteNumber, const CompanySettings& company, std::string_view bytes,
                     std::optional<std::chrono::year_month_day> expected, LocalTime now)
{
    // A saved file of today may have been published at any time of it.
    constexpr std::chrono::minutes kNeverFrozen = std::chrono::days{2};
    const PublishedFile file = ParsePublishedFile(bytes, company.extraHeadings);
    CheckTimeliness(file, expected.value_or(file.date), now, kNeverFrozen);
    return {file.date, store.Append(siteNumber, file.date, file.figures, file.published, now)};
}

std::optional<std::chrono::year_month_day> DayOfName(std::string_view name)
{
    for (auto begin = name.begin(); begin != name.end();) {
        begin = std::find_if(begin, name.end(), IsDigit);
        const auto end = std::find_if_not(begin, name.end(), IsDigit);
        if (const auto date = DayOf({begin, end})) {
            return date;
        }
        begin = end;
    }
    return std::nullopt;
}

} // namespace reportd
