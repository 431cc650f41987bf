#include "server/live/Wording.h"

#include "server/TimeText.h"

#include <algorithm>

namespace reportd {

std::string MomentText(LocalTime moment)
{
    return DateText(std::chrono::year_month_day{std::chrono::floor<std::chrono::days>(moment)}) + " " +
           TimeOfDayText(moment);
}

std::string TimeOfDayText(LocalTime moment)
{
    std::string text;
    PutTime(text, moment);
    constexpr std::size_t kTimeAt = 11; // behind "2026-04-20T"
    return text.substr(kTimeAt, 5);
}

std::string KeyOfCompany(int siteNumber)
{
    const catalogue::Company* const company = catalogue::FindCompany(siteNumber);
    return company == nullptr ? "?" : std::string(company->key.Narrow());
}

std::optional<int> SiteNumberOf(std::string_view key)
{
    for (const catalogue::Company& company : catalogue::kCompanies) {
        if (company.key.Narrow() == key) {
            return company.siteNumber;
        }
    }
    return std::nullopt;
}

std::string AllCompanyKeys()
{
    std::string text;
    for (const catalogue::Company& company : catalogue::kCompanies) {
        text += (text.empty() ? "" : ", ") + std::string(company.key.Narrow());
    }
    return text;
}

std::string Shown(std::string_view text)
{
    constexpr std::size_t kLongest = 200;
    std::string shown(text.substr(0, kLongest));
    std::replace_if(
        shown.begin(), shown.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }, '?');
    return shown;
}

std::string AlignColumns(const std::vector<std::vector<std::string>>& rows)
{
    std::vector<std::size_t> widths;
    for (const std::vector<std::string>& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    std::string text;
    for (const std::vector<std::string>& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
        }
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}

} // namespace reportd
