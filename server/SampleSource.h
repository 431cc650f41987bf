// Sample data in the place of real measurements: plausible daily curves, computed.
//
// The same arguments always give the same values, on every system. The values are in megawatts. All functions are pure
// and may be called from any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

namespace reportd {

// Local wall-clock time in whole seconds; never converted between zones.
using LocalTime = std::chrono::local_seconds;

// One value and the interval that it covers, from start up to end.
struct ReportRecord {
    LocalTime start;
    LocalTime end;
    std::uint64_t value = 0; // megawatts

    bool operator==(const ReportRecord&) const = default;
};

// The first day with data. The last one is the day after now's: of a day to come only the estimate and the peaks are
// known.
inline constexpr std::chrono::year_month_day kFirstSampleDay{std::chrono::year{2011}, std::chrono::January,
                                                             std::chrono::day{1}};

// The records of one company, kind and day in order of time: instant usage every 5 minutes and actual usage every hour,
// both up to now; estimated usage for every hour of the day; each peak for the hour of the highest estimated usage.
// siteNumber, dataType: as in the catalogue; date: must be a day of the calendar; now: an interval that has not ended
// by then has no measured value yet. Empty when there is no data, and for a number or code that the catalogue does not
// have.
std::vector<ReportRecord> SampleRecords(int siteNumber, std::uint32_t dataType, std::chrono::year_month_day date,
                                        LocalTime now);

} // namespace reportd
