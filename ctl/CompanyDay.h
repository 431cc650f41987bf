// What the data files of a company tell about one day, for its chart.
#pragma once

#include "chart/DayChartSvg.h"
#include "ctl/DataFiles.h"

namespace ctl {

// A company's day. Each list is in order of time and holds records that start within the day and have a length.
struct CompanyDay {
    const catalogue::Company& company;
    SYSTEMTIME day; // local time; hour and below do not matter
    std::vector<_AmporaOneData> instant = {};
    std::vector<_AmporaOneData> actual = {};
    std::vector<_AmporaOneData> estimated = {};
    std::optional<_AmporaOneData> peakSupply = {};
    std::optional<_AmporaOneData> peakDemand = {};

    bool HasFigures() const;
};

// Takes the day out of the files of the company; a faulty file has nothing.
CompanyDay DayOf(const catalogue::Company& company, const std::vector<KnownFile>& files, const SYSTEMTIME& day);

// The curves of the chart. Measured demand is that of every 5 minutes, and the mean of each hour in which nothing was
// measured so. now: local time; its line is drawn when it lies in the day.
chart::DayCurves CurvesOf(const CompanyDay& day, const SYSTEMTIME& now);

// Its texts.
chart::DayLabels LabelsOf(const CompanyDay& day, const SYSTEMTIME& now);

} // namespace ctl
