// A day of electricity demand and supply as a chart: the values that it shows and its geometry, without any way of
// drawing it. chart/DayChartSvg.h draws it.
//
// Minutes count from the start of the day at 0:00, values are in megawatts. All functions are pure and may be called
// from any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace chart {

inline constexpr int kDayMinutes = 24 * 60;

// One value and the interval that it stands for, from startMinute on.
struct DayValue {
    int startMinute = 0;
    int lengthMinutes = 60;
    std::int64_t megawatts = 0;

    bool operator==(const DayValue&) const = default;
};

// What is drawn. Each series is in order of time; an interval without a value is left out and shows as a gap. What does
// not lie within the day is not drawn.
struct DayCurves {
    std::vector<DayValue> measured = {};     // demand
    std::vector<DayValue> yesterday = {};    // demand of the day before, at its minutes
    std::vector<DayValue> forecast = {};     // demand
    std::vector<DayValue> supply = {};       // of the same intervals
    std::optional<DayValue> peakDemand = {}; // the highest forecast demand
    std::optional<DayValue> peakSupply = {}; // supply in that hour
    std::optional<int> nowMinute = {};       // none for a day that is not today
};

// Round values for the axis: 0, step, ... up to highest, which is at least the highest value of all curves.
struct ValueScale {
    std::int64_t highest = 0; // a multiple of step
    std::int64_t step = 0;    // 1, 2 or 5 times a power of ten

    bool operator==(const ValueScale&) const = default;
};

// stepCount: about how many steps there should be, at least 1; there are at most as many. Without any value the scale
// goes to 1000.
ValueScale ScaleOf(const DayCurves& curves, int stepCount);

// A place in a chart: minute of the day and value. A drawing scales both.
struct DayPoint {
    int minute = 0;
    std::int64_t megawatts = 0;

    bool operator==(const DayPoint&) const = default;
};

// The lines of a series, each through at least one point: one for each run of values without a gap. Values of less than
// half an hour are measurements at their start and are joined; longer ones are means of their intervals and become
// steps.
std::vector<std::vector<DayPoint>> LinesOf(const std::vector<DayValue>& values);

// The number with a comma between groups of three digits, whatever the locale: 41230 becomes "41,230".
std::string GroupDigits(std::int64_t number);

} // namespace chart
