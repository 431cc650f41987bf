// A day's chart as a page of its own.
#pragma once

#include "chart/DayChartSvg.h"

namespace chart {

// An HTML document that needs no other file: the drawing of DayChartSvg, light or dark as the reader prefers, with the
// title as its heading and the description below. Fits narrow windows.
std::string DayChartPage(const DayCurves& curves, const DayLabels& labels);

} // namespace chart
