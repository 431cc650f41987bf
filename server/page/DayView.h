// What a page shows of one company: a day's figures out of a source, and what follows from them.
#pragma once

#include "server/FigureSource.h"
#include "server/UsageRate.h"

namespace reportd {

// A company's day. Each list is in order of time and holds records that lie within the day only.
struct DayView {
    int siteNumber = 0;
    std::chrono::year_month_day date = {};
    std::vector<ReportRecord> instant = {};
    std::vector<ReportRecord> actual = {};
    std::vector<ReportRecord> estimated = {};
    std::vector<ReportRecord> supply = {};
    std::vector<ReportRecord> solar = {};
    std::vector<ReportRecord> wind = {};
    std::optional<ReportRecord> peakDemand = {};
    std::optional<ReportRecord> peakSupply = {};
    std::vector<UsageRate> rates = {}; // by hour
    DayState state = {};

    // Whether there is demand or supply over time; HasFigures: or any other figure.
    bool HasCurves() const;
    bool HasFigures() const;
};

// Reads all of a day. Throws what the source throws.
DayView LoadDay(CFigureSource& source, int siteNumber, std::chrono::year_month_day date, LocalTime now);

// Only the peaks of a day. Throws what the source throws.
DayView LoadPeaks(CFigureSource& source, int siteNumber, std::chrono::year_month_day date, LocalTime now);

// The newest demand that was measured.
struct Reading {
    ReportRecord record;
    bool isInstant = false;                  // measured at its start; else the mean of its interval
    std::optional<ReportRecord> supply = {}; // of the hour in which it starts
    std::optional<unsigned> tenths = {};     // usage rate, when that supply is known
    LocalTime Moment() const { return isInstant ? record.start : record.end; }
};

// The newest of a day; none when there is none.
std::optional<Reading> NewestReading(const DayView& day);

// The usage rate at the peak, of peaks of the same hour only.
std::optional<unsigned> PeakRate(const DayView& day);

// How current a day's figures are.
enum class Freshness {
    kSample,  // computed
    kMissing, // nothing was ever received
    kCurrent, // confirmed within the time, or at the end of the day or later
    kStale,   // not confirmed for longer
};

// isSample: of the source; staleAfter: the longest time without confirmation.
Freshness FreshnessOf(const DayView& day, bool isSample, LocalTime now, std::chrono::minutes staleAfter);

} // namespace reportd
