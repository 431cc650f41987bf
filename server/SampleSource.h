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

enum class Company { kTokyo, kTohoku, kChubu, kKansai, kKyushu };

enum class ReportKind {
    kInstantUsage,   // every 5 minutes, up to now
    kActualUsage,    // every hour, up to now
    kEstimatedUsage, // every hour of the day
    kPeakSupply,     // the hour of the day's highest estimated usage
    kPeakDemand,     // the same hour
};

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

// The records of one company, kind and day in order of time. date: must be a day of the calendar; now: decides how far
// instant and actual usage reach, an interval that has not ended has no value yet. Empty when there is no data.
std::vector<ReportRecord> SampleRecords(Company company, ReportKind kind, std::chrono::year_month_day date,
                                        LocalTime now);

} // namespace reportd
