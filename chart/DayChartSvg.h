// Draws a day's chart as SVG.
#pragma once

#include "chart/DayChart.h"
#include "chart/DayChartStyle.h"

namespace chart {

// The texts of a chart, as they are to be read: UTF-8, in any language, of any content; they are escaped.
struct DayLabels {
    std::string title = {};       // what the chart shows; its accessible name
    std::string description = {}; // the chart in a sentence, for readers who do not see it
    std::string unit = {};        // of the values, above their axis
    std::string measured = {};    // names of the curves
    std::string yesterday = {};
    std::string forecast = {};
    std::string supply = {};
    std::string peakDemand = {}; // beside the lines
    std::string peakSupply = {};
    std::string now = {};
};

struct SvgOptions {
    int width = 760;  // units of the drawing, pixels at its natural size; at least 240, without axes 60
    int height = 340; // at least 160, without axes 20
    std::string id =
        "chart"; // start of the ids in the drawing, unique in its document: a letter, then letters and digits
    bool isStandAlone = true; // a document of its own with its style and a legend, instead of a part of an HTML page
                              // whose style sheet holds kDayChartStyle
    bool hasAxes = true;      // false: a small picture of the curves without any text but the title
};

// An svg element, which is well-formed XML and valid within HTML. Everything has a class, nothing a style attribute, so
// that it may be shown where inline styles are not allowed. Throws std::invalid_argument for sizes below their limits.
//
// The svg element has the attributes data-left, data-right, data-top and data-bottom: where 0:00, 24:00, the highest
// value and 0 MW lie, in units of its viewBox.
std::string DayChartSvg(const DayCurves& curves, const DayLabels& labels, const SvgOptions& options);

} // namespace chart
