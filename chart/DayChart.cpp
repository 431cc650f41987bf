#include "chart/DayChart.h"

#include <algorithm>

namespace chart {
namespace {

// Far above what a country uses; keeps the arithmetic of broken values within its types.
constexpr std::int64_t kHighestMegawatts = 1'000'000'000;
constexpr std::int64_t kEmptyScaleMegawatts = 1000;
constexpr int kMeasurementMinutes = 30;

std::int64_t Bounded(std::int64_t megawatts) { return std::clamp<std::int64_t>(megawatts, 0, kHighestMegawatts); }

std::int64_t HighestOf(const DayCurves& curves)
{
    std::int64_t highest = 0;
    for (const auto* series : {&curves.measured, &curves.yesterday, &curves.forecast, &curves.supply}) {
        for (const DayValue& value : *series) {
            highest = std::max(highest, Bounded(value.megawatts));
        }
    }
    for (const auto* peak : {&curves.peakDemand, &curves.peakSupply}) {
        if (*peak) {
            highest = std::max(highest, Bounded((*peak)->megawatts));
        }
    }
    return highest == 0 ? kEmptyScaleMegawatts : highest;
}

bool LiesInDay(const DayValue& value)
{
    return value.startMinute >= 0 && value.startMinute < kDayMinutes && value.lengthMinutes > 0;
}

int EndOf(const DayValue& value)
{
    return value.startMinute + std::min(value.lengthMinutes, kDayMinutes - value.startMinute);
}

} // namespace

ValueScale ScaleOf(const DayCurves& curves, int stepCount)
{
    const std::int64_t highest = HighestOf(curves);
    std::int64_t step = 1;
    // From 1 to 2, 5, 10, 20, ...
    for (int turn = 0; step * stepCount < highest; turn = (turn + 1) % 3) {
        step = turn == 1 ? step / 2 * 5 : step * 2;
    }
    return {(highest + step - 1) / step * step, step};
}

std::vector<std::vector<DayPoint>> LinesOf(const std::vector<DayValue>& values)
{
    std::vector<std::vector<DayPoint>> lines;
    int end = -1;
    for (const DayValue& value : values) {
        if (!LiesInDay(value)) {
            continue;
        }
        if (value.startMinute != end) {
            lines.emplace_back();
        }
        end = EndOf(value);
        lines.back().push_back({value.startMinute, Bounded(value.megawatts)});
        if (value.lengthMinutes >= kMeasurementMinutes) {
            lines.back().push_back({end, Bounded(value.megawatts)});
        }
    }
    return lines;
}

std::string GroupDigits(std::int64_t number)
{
    std::string text = std::to_string(number);
    const std::size_t first = number < 0 ? 1 : 0;
    for (std::size_t place = text.size(); place > first + 3;) {
        place -= 3;
        text.insert(place, 1, ',');
    }
    return text;
}

} // namespace chart
