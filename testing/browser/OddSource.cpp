#include "testing/browser/OddSource.h"

#include <array>

namespace testing_support {
namespace {

using reportd::ReportRecord;
using reportd::Series;
using std::chrono::days;
using std::chrono::hours;
using std::chrono::minutes;

constexpr reportd::LocalTime kMidnight{std::chrono::local_days{kOddDay}};
constexpr std::uint64_t kSupply = 10000;
// Demand of an hour, at and beside the limits of the bands.
constexpr std::array<std::uint64_t, 6> kDemands = {9200, 9210, 9500, 9510, 9700, 9710};

ReportRecord Interval(minutes start, minutes length, std::uint64_t value)
{
    return {kMidnight + start, kMidnight + start + length, value};
}

ReportRecord Hour(int hour, std::uint64_t value) { return Interval(hours{hour}, hours{1}, value); }

void AddHours(CScriptedSource& source, int siteNumber)
{
    for (int hour = 0; hour < 24; ++hour) {
        const std::uint64_t demand = kDemands.at(static_cast<std::size_t>(hour) % kDemands.size());
        source.Add(siteNumber, Series::kEstimatedUsage, kOddDay, Hour(hour, demand));
        if (hour < 14) {
            source.Add(siteNumber, Series::kActualUsage, kOddDay, Hour(hour, demand));
        }
        if (hour != 9) {
            source.Add(siteNumber, Series::kSupply, kOddDay, Hour(hour, kSupply));
        }
    }
}

void AddMeasurements(CScriptedSource& source, int siteNumber)
{
    for (minutes start{0}; start < hours{15}; start += minutes{5}) {
        if (start >= hours{10} && start < hours{11}) {
            continue;
        }
        const auto value = static_cast<std::uint64_t>(9000 + start.count() % 100 * 2);
        source.Add(siteNumber, Series::kInstantUsage, kOddDay, Interval(start, minutes{5}, value));
        source.Add(siteNumber, Series::kSolar, kOddDay, Interval(start, minutes{5}, start < hours{6} ? 0 : 1234));
        source.Add(siteNumber, Series::kWind, kOddDay, Interval(start, minutes{5}, 56));
    }
}

void AddPeaks(CScriptedSource& source, int siteNumber)
{
    const std::chrono::year_month_day tomorrow{std::chrono::local_days(kOddDay) + days{1}};
    source.Add(siteNumber, Series::kPeakDemand, kOddDay, Hour(17, 9710));
    source.Add(siteNumber, Series::kPeakSupply, kOddDay, Hour(17, kSupply));
    source.Add(siteNumber, Series::kPeakDemand, tomorrow, Hour(24 + 9, 8400));
    source.Add(siteNumber, Series::kPeakSupply, tomorrow, Hour(24 + 9, kSupply));
}

} // namespace

std::unique_ptr<CScriptedSource> MakeOddSource(const std::string& name)
{
    auto source = std::make_unique<CScriptedSource>(name);
    for (const int siteNumber : {catalogue::kTokyo, catalogue::kTohoku}) {
        AddHours(*source, siteNumber);
        AddMeasurements(*source, siteNumber);
        AddPeaks(*source, siteNumber);
    }
    for (int hour = 0; hour < 14; ++hour) {
        source->Add(catalogue::kChubu, Series::kActualUsage, kOddDay, Hour(hour, 7000));
    }
    source->Add(catalogue::kKyushu, Series::kInstantUsage, kOddDay, Interval(hours{14}, minutes{5}, 20));
    source->Add(catalogue::kKyushu, Series::kSupply, kOddDay, Hour(14, 10));
    source->Add(catalogue::kKyushu, Series::kPeakDemand, kOddDay, Hour(17, 25));
    source->Add(catalogue::kKyushu, Series::kPeakSupply, kOddDay, Hour(18, 20));
    for (const int siteNumber : {catalogue::kTokyo, catalogue::kTohoku, catalogue::kChubu, catalogue::kKyushu}) {
        const reportd::LocalTime observed = siteNumber == catalogue::kTohoku ? kMidnight + hours{12} : kOddNow;
        source->SetState(siteNumber, kOddDay,
                         {.revision = 1, .published = observed - minutes{3}, .observed = observed});
    }
    return source;
}

} // namespace testing_support
