#include "server/published/Headings.h"

#include "server/published/PlainText.h"

#include <array>
#include <utility>

namespace reportd {
namespace {

// As FoldCell gives them. 予測 and 予想 are different words; the companies use both for a forecast.
constexpr std::array<std::pair<std::string_view, Series>, 14> kValueHeadings = {{
    {"当日実績(5分間隔値)(万kW)", Series::kInstantUsage},
    {"当日実績(万kW)", Series::kActualUsage},
    {"予測値(万kW)", Series::kEstimatedUsage},
    {"予想値(万kW)", Series::kEstimatedUsage},
    {"需要電力予測値(万kW)", Series::kEstimatedUsage},
    {"ピーク時供給力(万kW)", Series::kPeakSupply},
    {"需要ピーク時供給力(万kW)", Series::kPeakSupply},
    {"予想最大電力(万kW)", Series::kPeakDemand},
    {"需要予想最大電力(万kW)", Series::kPeakDemand},
    {"供給力(万kW)", Series::kSupply},
    {"供給力想定値(万kW)", Series::kSupply},
    {"供給力予測値(万kW)", Series::kSupply},
    {"太陽光発電実績(5分間隔値)(万kW)", Series::kSolar},
    {"風力発電実績(5分間隔値)(万kW)", Series::kWind},
}};

constexpr std::string_view kTomorrow = "翌日の";

// The usage rate's peak is another hour than the demand's. Percentages follow from other values. When one value was
// last renewed says less than the stamp of the file.
bool IsAside(std::string_view heading)
{
    return heading.starts_with("使用率ピーク時") || heading.ends_with("(%)") || heading.ends_with("情報更新日") ||
           heading.ends_with("情報更新時刻");
}

} // namespace

CHeadings::CHeadings(const ExtraHeadings& extra) : m_values(kValueHeadings.begin(), kValueHeadings.end())
{
    for (const auto& [series, names] : extra.names) {
        for (const std::string& name : names) {
            m_values.emplace(FoldCell(name), series);
        }
    }
}

Meaning CHeadings::Of(const std::string& heading) const
{
    static constexpr std::array<std::pair<std::string_view, Column>, 4> kFrame = {{
        {"DATE", Column::kDate},
        {"TIME", Column::kTime},
        {"曜日", Column::kWeekday},
        {"時間帯", Column::kSlot},
    }};
    for (const auto& [name, column] : kFrame) {
        if (heading == name) {
            return {.column = column};
        }
    }
    std::string_view rest = heading;
    const bool isTomorrow = rest.starts_with(kTomorrow);
    if (isTomorrow) {
        rest.remove_prefix(kTomorrow.size());
    }
    const auto found = m_values.find(rest);
    if (found != m_values.end() && (!isTomorrow || InfoOf(found->second).isPeak)) {
        return {.column = Column::kValue, .series = found->second, .isTomorrow = isTomorrow};
    }
    return {.column = IsAside(rest) ? Column::kAside : Column::kUnknown};
}

} // namespace reportd
