// Where a figure lies in the tables of the store, which Schema.cpp describes.
#pragma once

#include "server/Figures.h"

#include <cstddef>
#include <optional>

namespace reportd {

// The values of one row of a table, in the order of its columns; what is not there is NULL.
inline constexpr std::size_t kMostValues = 4;
using RowValues = std::array<std::optional<std::int64_t>, kMostValues>;

struct FigureTable {
    std::string_view name;
    std::size_t count = 0; // of the columns that hold values
    std::array<std::string_view, kMostValues> columns;
};

inline constexpr std::array kFigureTables = {
    FigureTable{"five_minute", 3, {"instant", "solar", "wind"}},
    FigureTable{"hourly", 3, {"actual", "estimated", "supply"}},
    FigureTable{"peak", 4, {"supply", "supply_minute", "demand", "demand_minute"}},
};

// The place of a series. A peak's minute lies in the column after its value.
struct FigurePlace {
    Series series = Series::kInstantUsage;
    std::size_t table = 0;  // in kFigureTables
    std::size_t column = 0; // of that table
};

inline constexpr std::array kFigurePlaces = {
    FigurePlace{Series::kInstantUsage, 0, 0},   FigurePlace{Series::kSolar, 0, 1},
    FigurePlace{Series::kWind, 0, 2},           FigurePlace{Series::kActualUsage, 1, 0},
    FigurePlace{Series::kEstimatedUsage, 1, 1}, FigurePlace{Series::kSupply, 1, 2},
    FigurePlace{Series::kPeakSupply, 2, 0},     FigurePlace{Series::kPeakDemand, 2, 2},
};
static_assert(kFigurePlaces.size() == kAllSeries.size());

// Where the place of a series, which always has one, lies in kFigurePlaces.
constexpr std::size_t PlaceIndexOf(Series series)
{
    const auto* const found = std::find_if(kFigurePlaces.begin(), kFigurePlaces.end(),
                                           [series](const FigurePlace& place) { return place.series == series; });
    return static_cast<std::size_t>(found - kFigurePlaces.begin());
}

// Number of the interval in its day; 0 for a peak.
constexpr std::int64_t SlotOf(const SeriesInfo& info, std::chrono::minutes minuteOfDay)
{
    return info.isPeak ? 0 : minuteOfDay / info.length;
}

// The record of a row: day, slot and value; minute of the day at which the hour of a peak starts, else 0.
constexpr ReportRecord RecordOf(const SeriesInfo& info, std::chrono::local_days day, std::int64_t slot,
                                std::int64_t value, std::int64_t minute)
{
    const LocalTime start = day + (info.isPeak ? std::chrono::minutes(minute) : slot * info.length);
    return {start, start + info.length, static_cast<std::uint64_t>(value)};
}

} // namespace reportd
