// Usage rate: how much of the supply of an interval its demand takes.
#pragma once

#include "server/Figures.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

namespace reportd {

// In tenths of a percent, rounded; above 1000 when demand exceeds supply, 1'000'000 at most. None without a supply.
// demand, supply: of the same interval, in the same unit. Any thread, as the other function here.
inline std::optional<unsigned> UsageRateInTenths(std::uint64_t demand, std::uint64_t supply)
{
    if (supply == 0) {
        return {};
    }
    const double rate = static_cast<double>(demand) / static_cast<double>(supply);
    return static_cast<unsigned>(std::lround(std::min(rate * 1000, 1'000'000.0)));
}

// The rate of an interval.
struct UsageRate {
    LocalTime start;
    LocalTime end;
    unsigned tenths = 0;     // of a percent
    bool isMeasured = false; // its demand is the actual one, not the estimate
};

// The rates of the intervals of supply, each from the actual demand of that very interval or else from its estimated
// one; none for an interval without either. actual, estimated, supply: in order of time.
inline std::vector<UsageRate> UsageRatesOf(const std::vector<ReportRecord>& actual,
                                           const std::vector<ReportRecord>& estimated,
                                           const std::vector<ReportRecord>& supply)
{
    const auto find = [](const std::vector<ReportRecord>& records, const ReportRecord& interval) {
        const auto found =
            std::lower_bound(records.begin(), records.end(), interval.start,
                             [](const ReportRecord& record, LocalTime start) { return record.start < start; });
        const bool isSame = found != records.end() && found->start == interval.start && found->end == interval.end;
        return isSame ? &*found : nullptr;
    };
    std::vector<UsageRate> rates;
    for (const ReportRecord& hour : supply) {
        const ReportRecord* const measured = find(actual, hour);
        const ReportRecord* const demand = measured != nullptr ? measured : find(estimated, hour);
        const auto tenths = demand == nullptr ? std::nullopt : UsageRateInTenths(demand->value, hour.value);
        if (tenths) {
            rates.push_back({hour.start, hour.end, *tenths, measured != nullptr});
        }
    }
    return rates;
}

} // namespace reportd
