// Sample data in the place of real measurements: plausible daily curves, computed.
//
// The same arguments always give the same values, on every system. The values are in megawatts. All functions are pure
// and may be called from any thread.
#pragma once

#include "server/FigureSource.h"

namespace reportd {

// The first day with data. The last one is the day after now's: of a day to come only the estimate and the peaks are
// known.
inline constexpr std::chrono::year_month_day kFirstSampleDay{std::chrono::year{2011}, std::chrono::January,
                                                             std::chrono::day{1}};

// The records of one company, series and day in order of time: instant usage every 5 minutes and actual usage every
// hour, both up to now; estimated usage and supply for every hour of the day; each peak for the hour of the highest
// estimated usage. siteNumber: as in the catalogue; date: must be a day of the calendar; now: an interval that has not
// ended by then has no measured value yet. Empty when there is no data, for a number that the catalogue does not have,
// and for other series.
std::vector<ReportRecord> SampleRecords(int siteNumber, Series series, std::chrono::year_month_day date, LocalTime now);

// The same as a source. It keeps no history: asOf stands for now.
class CSampleSource : public CFigureSource {
public:
    std::string_view Name() const override { return "sample"; }
    std::vector<ReportRecord> Read(int siteNumber, Series series, std::chrono::year_month_day date, LocalTime now,
                                   std::optional<LocalTime> asOf) override;
    DayState State(int siteNumber, std::chrono::year_month_day date, LocalTime now) override;
    std::optional<LocalTime> Newest(int siteNumber, Series series) override;
    bool IsReady() override { return true; }
};

} // namespace reportd
