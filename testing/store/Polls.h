// A numbered series of polls, each of which can be recognised in a store.
#pragma once

#include "server/store/FigureStore.h"

namespace testing_support {

inline constexpr int kPollSite = 3;
inline constexpr std::chrono::year_month_day kPollDate{std::chrono::year{2026}, std::chrono::April,
                                                       std::chrono::day{20}};

// The interval in which poll number (from 1) has its value of solar generation.
constexpr reportd::LocalTime IntervalOfPoll(std::uint64_t number)
{
    return std::chrono::local_days(kPollDate) + (number - 1) * std::chrono::minutes(5);
}

// Appends poll number (from 1): the 24 estimates of the first day, all of them this number, and one value of solar
// generation, which is this number as well, in the next interval of 5 minutes.
inline void AppendPoll(reportd::CFigureStore& store, std::uint64_t number)
{
    using reportd::Series;
    const reportd::LocalTime interval = IntervalOfPoll(number);
    std::vector<reportd::Figure> figures{{Series::kSolar, {interval, interval + std::chrono::minutes(5), number}}};
    const std::chrono::local_days first{kPollDate};
    for (reportd::LocalTime hour = first; hour < first + std::chrono::days(1); hour += std::chrono::hours(1)) {
        figures.push_back({Series::kEstimatedUsage, {hour, hour + std::chrono::hours(1), number}});
    }
    store.Append(kPollSite, kPollDate, figures, interval, interval + std::chrono::minutes(2));
}

// The number of the last poll that the store has, all of whose predecessors it must have as well; 0 when there is none.
// Throws std::runtime_error when one of them is missing or there in part.
inline std::uint64_t LastPoll(reportd::CFigureStore& store)
{
    using reportd::Series;
    std::uint64_t last = 0;
    for (std::chrono::local_days day{kPollDate}; store.State(kPollSite, std::chrono::year_month_day(day)).revision != 0;
         day += std::chrono::days(1)) {
        for (const reportd::ReportRecord& record :
             store.Read(kPollSite, Series::kSolar, std::chrono::year_month_day(day), {})) {
            if (record.value != ++last || record.start != IntervalOfPoll(last)) {
                throw std::runtime_error("poll " + std::to_string(last) + " is missing");
            }
        }
    }
    for (const reportd::ReportRecord& record : store.Read(kPollSite, Series::kEstimatedUsage, kPollDate, {})) {
        if (record.value != last) {
            throw std::runtime_error("poll " + std::to_string(last) + " is there in part");
        }
    }
    return last;
}

} // namespace testing_support
