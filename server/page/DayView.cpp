#include "server/page/DayView.h"

namespace reportd {
namespace {

// The records that lie within the day.
std::vector<ReportRecord> ReadDay(CFigureSource& source, int siteNumber, Series series,
                                  std::chrono::year_month_day date, LocalTime now)
{
    std::vector<ReportRecord> records = source.Read(siteNumber, series, date, now, std::nullopt);
    const LocalTime start{std::chrono::local_days(date)};
    std::erase_if(records, [start](const ReportRecord& record) {
        return record.start < start || record.start >= start + std::chrono::days{1} || record.end <= record.start;
    });
    return records;
}

const ReportRecord* RecordAt(const std::vector<ReportRecord>& records, LocalTime moment)
{
    const auto found = std::find_if(records.begin(), records.end(), [moment](const ReportRecord& record) {
        return record.start <= moment && moment < record.end;
    });
    return found == records.end() ? nullptr : &*found;
}

} // namespace

bool DayView::HasCurves() const { return !instant.empty() || !actual.empty() || !estimated.empty() || !supply.empty(); }

bool DayView::HasFigures() const { return HasCurves() || !solar.empty() || !wind.empty() || peakDemand || peakSupply; }

DayView LoadDay(CFigureSource& source, int siteNumber, std::chrono::year_month_day date, LocalTime now)
{
    const auto read = [&](Series series) { return ReadDay(source, siteNumber, series, date, now); };
    DayView day = LoadPeaks(source, siteNumber, date, now);
    day.instant = read(Series::kInstantUsage);
    day.actual = read(Series::kActualUsage);
    day.estimated = read(Series::kEstimatedUsage);
    day.supply = read(Series::kSupply);
    day.solar = read(Series::kSolar);
    day.wind = read(Series::kWind);
    day.rates = UsageRatesOf(day.actual, day.estimated, day.supply);
    day.state = source.State(siteNumber, date, now);
    return day;
}

DayView LoadPeaks(CFigureSource& source, int siteNumber, std::chrono::year_month_day date, LocalTime now)
{
    const auto read = [&](Series series) {
        const std::vector<ReportRecord> records = ReadDay(source, siteNumber, series, date, now);
        return records.empty() ? std::nullopt : std::optional(records.back());
    };
    return {.siteNumber = siteNumber,
            .date = date,
            .peakDemand = read(Series::kPeakDemand),
            .peakSupply = read(Series::kPeakSupply)};
}

std::optional<Reading> NewestReading(const DayView& day)
{
    if (day.instant.empty() && day.actual.empty()) {
        return {};
    }
    const bool isInstant =
        !day.instant.empty() && (day.actual.empty() || day.instant.back().start >= day.actual.back().start);
    Reading reading{.record = isInstant ? day.instant.back() : day.actual.back(), .isInstant = isInstant};
    if (const ReportRecord* const supply = RecordAt(day.supply, reading.record.start)) {
        reading.supply = *supply;
        reading.tenths = UsageRateInTenths(reading.record.value, supply->value);
    }
    return reading;
}

std::optional<unsigned> PeakRate(const DayView& day)
{
    if (!day.peakDemand || !day.peakSupply || day.peakDemand->start != day.peakSupply->start ||
        day.peakDemand->end != day.peakSupply->end) {
        return {};
    }
    return UsageRateInTenths(day.peakDemand->value, day.peakSupply->value);
}

Freshness FreshnessOf(const DayView& day, bool isSample, LocalTime now, std::chrono::minutes staleAfter)
{
    if (isSample) {
        return Freshness::kSample;
    }
    if (!day.state.observed) {
        return day.HasFigures() ? Freshness::kStale : Freshness::kMissing;
    }
    // A day that is over changes no more, unless it was lost sight of before its end.
    const LocalTime end = LocalTime(std::chrono::local_days(day.date)) + std::chrono::days{1};
    const LocalTime due = std::min(now, end);
    return due - *day.state.observed <= staleAfter ? Freshness::kCurrent : Freshness::kStale;
}

} // namespace reportd
