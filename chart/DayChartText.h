// Draws a day's chart with characters, for a terminal.
#pragma once

#include "chart/DayChartSvg.h"

namespace chart {

// What a terminal is sent before a part of the drawing of that colour, and after it; all empty for one without colours.
struct TextColours {
    std::string_view measured = {};
    std::string_view forecast = {};
    std::string_view supply = {};
    std::string_view quiet = {}; // axes
    std::string_view off = {};
};

inline constexpr int kMinTextColumns = 32;

struct TextOptions {
    int columns = 80;      // that a line may have, at least kMinTextColumns; more than 150 are not used
    int rows = 12;         // of the plot, at least 4
    bool isUnicode = true; // false: only ASCII, except what the labels hold
    TextColours colours = {};
};

// The chart in lines, UTF-8, each of at most options.columns characters when each word of the labels is shorter than
// that. A bar of each column is the mean demand that was measured in its minutes, a dot the forecast, dotted lines the
// peaks, an upright line the present minute; curves.yesterday and curves.supply are not drawn. The labels' title and
// description are left out, those of curves and peaks that are empty, too. Throws std::invalid_argument for sizes below
// their limits.
std::string DayChartText(const DayCurves& curves, const DayLabels& labels, const TextOptions& options);

} // namespace chart
