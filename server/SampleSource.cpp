#include "server/SampleSource.h"

#include <algorithm>
#include <array>

namespace reportd {
namespace {

constexpr minutes kInstantLength{5};
constexpr minutes kHour{60};

// Integers only, so that every compiler computes the same values. Shares are in thousandths.
constexpr std::int64_t kWhole = 1000;

// What sets a company's sample data apart.
struct SampleCompany {
    int siteNumber;
    std::int64_t highestMegawatts; // usage in a year's highest hour
    std::uint64_t stream;          // selects its random-looking numbers
};
constexpr std::array kSampleCompanies = {
    SampleCompany{catalogue::kTokyo, 50000, 0},  SampleCompany{catalogue::kTohoku, 13500, 1},
    SampleCompany{catalogue::kChubu, 25500, 2},  SampleCompany{catalogue::kKansai, 27500, 3},
    SampleCompany{catalogue::kKyushu, 16000, 4},
};
constexpr const SampleCompany* FindSampleCompany(int siteNumber)
{
    const auto* const found =
        std::find_if(kSampleCompanies.begin(), kSampleCompanies.end(),
                     [siteNumber](const SampleCompany& company) { return company.siteNumber == siteNumber; });
    return found == kSampleCompanies.end() ? nullptr : found;
}
static_assert(std::all_of(catalogue::kCompanies.begin(), catalogue::kCompanies.end(),
                          [](const auto& company) { return FindSampleCompany(company.siteNumber) != nullptr; }));

// Of the year's highest, January first: high in summer (cooling) and winter (heating).
constexpr std::array<std::int64_t, 12> kMonthShares = {930, 930, 850, 780, 750, 820, 960, 980, 880, 770, 800, 900};
// Of the day's highest, at each full hour from 0 o'clock on.
constexpr std::array<std::int64_t, 24> kHourShares = {680, 640, 615, 600, 595, 605, 650, 730, 830, 905, 945, 965,
                                                      930, 975, 990, 985, 965, 960, 955, 930, 890, 840, 785, 730};

// A number from -range to range that looks random and depends on the arguments alone (SplitMix64's finish).
std::int64_t Scatter(const SampleCompany& company, local_days day, std::int64_t slot, std::int64_t range)
{
    std::uint64_t bits = static_cast<std::uint64_t>(day.time_since_epoch().count()) * 10000U + company.stream * 1000U +
                         static_cast<std::uint64_t>(slot);
    bits += 0x9E3779B97F4A7C15U;
    bits = (bits ^ (bits >> 30U)) * 0xBF58476D1CE4E5B9U;
    bits = (bits ^ (bits >> 27U)) * 0x94D049BB133111EBU;
    bits ^= bits >> 31U;
    return static_cast<std::int64_t>(bits % static_cast<std::uint64_t>(2 * range + 1)) - range;
}

std::int64_t HighestOfDay(const SampleCompany& company, local_days day)
{
    const std::chrono::year_month_day date{day};
    const std::chrono::weekday weekday{day};
    std::int64_t weekdayShare = kWhole;
    if (weekday == std::chrono::Saturday) {
        weekdayShare = 900;
    } else if (weekday == std::chrono::Sunday) {
        weekdayShare = 860;
    }
    return company.highestMegawatts * kMonthShares.at(static_cast<unsigned>(date.month()) - 1) / kWhole * weekdayShare /
           kWhole;
}

// Usage as expected at a minute of the day, on the line between the full hours around it.
std::int64_t ExpectedAt(const SampleCompany& company, local_days day, minutes minute)
{
    const auto hour = static_cast<std::size_t>(minute / kHour);
    const std::int64_t into = (minute % kHour).count();
    const std::int64_t share =
        (kHourShares.at(hour) * (kHour.count() - into) + kHourShares.at((hour + 1) % kHourShares.size()) * into) /
        kHour.count();
    return HighestOfDay(company, day) * share / kWhole;
}

// Usage as measured: up to 2 % off for the whole day's weather, up to 1 % more for the moment.
std::int64_t MeasuredAt(const SampleCompany& company, local_days day, minutes minute)
{
    constexpr std::int64_t kWeatherSlot = 999;
    const std::int64_t share =
        kWhole + Scatter(company, day, kWeatherSlot, 20) + Scatter(company, day, minute / kInstantLength, 10);
    return ExpectedAt(company, day, minute) * share / kWhole;
}

std::int64_t MeanMeasured(const SampleCompany& company, local_days day, minutes from)
{
    std::int64_t sum = 0;
    for (minutes minute = from; minute < from + kHour; minute += kInstantLength) {
        sum += MeasuredAt(company, day, minute);
    }
    return sum / (kHour / kInstantLength);
}

ReportRecord MakeRecord(local_days day, minutes from, minutes length, std::int64_t value)
{
    return {day + from, day + from + length, static_cast<std::uint64_t>(value)};
}

// One record an interval, from the start of the day up to the last interval that ended by now.
template <class Value>
std::vector<ReportRecord> UsageRecords(local_days day, minutes length, LocalTime now, Value value)
{
    std::vector<ReportRecord> records;
    for (minutes from{0}; from < days{1} && day + from + length <= now; from += length) {
        records.push_back(MakeRecord(day, from, length, value(from)));
    }
    return records;
}

std::vector<ReportRecord> EstimatedRecords(const SampleCompany& company, local_days day)
{
    return UsageRecords(day, kHour, day + days{1},
                        [&](minutes from) { return ExpectedAt(company, day, from + kHour / 2); });
}

ReportRecord PeakRecord(const SampleCompany& company, local_days day)
{
    const std::vector<ReportRecord> hours = EstimatedRecords(company, day);
    return *std::max_element(hours.begin(), hours.end(),
                             [](const ReportRecord& a, const ReportRecord& b) { return a.value < b.value; });
}

// The supply in the interval of an estimated usage. The reserve lies between 8 and 14 % of the demand.
ReportRecord SupplyFor(const SampleCompany& company, local_days day, ReportRecord estimated)
{
    constexpr std::int64_t kReserveSlot = 998;
    estimated.value =
        estimated.value * static_cast<std::uint64_t>(1110 + Scatter(company, day, kReserveSlot, 30)) / kWhole;
    return estimated;
}

std::vector<ReportRecord> SupplyRecords(const SampleCompany& company, local_days day)
{
    std::vector<ReportRecord> records = EstimatedRecords(company, day);
    for (ReportRecord& record : records) {
        record = SupplyFor(company, day, record);
    }
    return records;
}

bool HasData(local_days day, LocalTime now)
{
    return day >= local_days{kFirstSampleDay} && day <= std::chrono::floor<days>(now) + days{1};
}

} // namespace

std::vector<ReportRecord> SampleRecords(int siteNumber, Series series, std::chrono::year_month_day date, LocalTime now)
{
    const SampleCompany* const company = FindSampleCompany(siteNumber);
    const local_days day{date};
    if (company == nullptr || !HasData(day, now)) {
        return {};
    }
    switch (series) {
    case Series::kInstantUsage:
        return UsageRecords(day, kInstantLength, now, [&](minutes from) { return MeasuredAt(*company, day, from); });
    case Series::kActualUsage:
        return UsageRecords(day, kHour, now, [&](minutes from) { return MeanMeasured(*company, day, from); });
    case Series::kEstimatedUsage:
        return EstimatedRecords(*company, day);
    case Series::kSupply:
        return SupplyRecords(*company, day);
    case Series::kPeakSupply:
        return {SupplyFor(*company, day, PeakRecord(*company, day))};
    case Series::kPeakDemand:
        return {PeakRecord(*company, day)};
    default:
        return {};
    }
}

std::vector<ReportRecord> CSampleSource::Read(int siteNumber, Series series, std::chrono::year_month_day date,
                                              LocalTime now, std::optional<LocalTime> asOf)
{
    return SampleRecords(siteNumber, series, date, asOf.value_or(now));
}

DayState CSampleSource::State(int siteNumber, std::chrono::year_month_day date, LocalTime now)
{
    const local_days day{date};
    if (FindSampleCompany(siteNumber) == nullptr || !HasData(day, now)) {
        return {};
    }
    const std::chrono::seconds passed = std::clamp<std::chrono::seconds>(now - day, std::chrono::seconds{0}, days{1});
    return {.revision = 1 + static_cast<std::uint64_t>(passed / kInstantLength)};
}

std::optional<LocalTime> CSampleSource::Newest(int /*siteNumber*/, Series /*series*/) { return {}; }

} // namespace reportd
