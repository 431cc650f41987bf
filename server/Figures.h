// The figures that the report server knows: series of values, each for an interval of time.
#pragma once

#include "format/Catalogue.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <string_view>

namespace reportd {

// The words of the calendar that the server speaks everywhere.
using std::chrono::days;
using std::chrono::hours;
using std::chrono::local_days;
using std::chrono::minutes;
using std::chrono::seconds;
using std::chrono::year;
using std::chrono::year_month_day;

// Wall-clock time at the companies, Japan's, in whole seconds. Sample data takes the machine's own for it.
using LocalTime = std::chrono::local_seconds;

// One value and the interval that it covers, from start up to end.
struct ReportRecord {
    LocalTime start;
    LocalTime end;
    std::uint64_t value = 0; // megawatts

    bool operator==(const ReportRecord&) const = default;
};

// What a value measures or forecasts. The first five are the kinds of reports and have the catalogue's codes.
enum class Series : std::uint32_t {
    kInstantUsage = catalogue::kInstantUsage,     // measured demand, every 5 minutes
    kActualUsage = catalogue::kActualUsage,       // mean demand of an hour that has ended
    kEstimatedUsage = catalogue::kEstimatedUsage, // forecast demand of each hour
    kPeakSupply = catalogue::kPeakSupply,         // supply in the hour of the highest demand, one a day
    kPeakDemand = catalogue::kPeakDemand,         // highest forecast demand of an hour, one a day
    kSupply = 32,                                 // supply of each hour
    kSolar = 64,                                  // measured solar generation, every 5 minutes
    kWind = 128,                                  // measured wind generation, every 5 minutes
};

struct SeriesInfo {
    Series series;
    std::string_view key;        // names it in URLs, metrics and tables
    std::chrono::minutes length; // of its intervals
    bool isPeak = false;         // one value a day, whose hour may be revised
};

// A value of a series.
struct Figure {
    Series series = Series::kInstantUsage;
    ReportRecord record = {};

    bool operator==(const Figure&) const = default;
};

// In the order of every list.
inline constexpr std::array kAllSeries = {
    SeriesInfo{Series::kInstantUsage, "instant_usage", std::chrono::minutes{5}},
    SeriesInfo{Series::kActualUsage, "actual_usage", std::chrono::minutes{60}},
    SeriesInfo{Series::kEstimatedUsage, "estimated_usage", std::chrono::minutes{60}},
    SeriesInfo{Series::kPeakSupply, "peak_supply", std::chrono::minutes{60}, true},
    SeriesInfo{Series::kPeakDemand, "peak_demand", std::chrono::minutes{60}, true},
    SeriesInfo{Series::kSupply, "supply", std::chrono::minutes{60}},
    SeriesInfo{Series::kSolar, "solar", std::chrono::minutes{5}},
    SeriesInfo{Series::kWind, "wind", std::chrono::minutes{5}},
};

// The entry of a series, which always has one.
constexpr const SeriesInfo& InfoOf(Series series)
{
    return *std::find_if(kAllSeries.begin(), kAllSeries.end(),
                         [series](const SeriesInfo& info) { return info.series == series; });
}

} // namespace reportd
