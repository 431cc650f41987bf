// What a load comes to, as figures, as a table of numbers, and as a picture.
#pragma once

#include "testing/fleet/Model.h"

#include <ostream>
#include <string>

namespace fleet {

// Of a load. Rates are requests a second.
struct Summary {
    std::uint64_t passes = 0;
    double requests = 0;
    double refused = 0;    // of these
    double mean = 0;       // from the first request's minute to the last one's
    double peakMinute = 0; // of the busiest minute
    double peakSecond = 0;
    TimeMs peakTime = 0;   // begin of the busiest second
    double originMean = 0; // of the cache to the report server, over the same time
    double originPeak = 0; // of the busiest second
};
Summary Summarize(const Load& load);

// A line for each minute of the day: time, requests, refused ones and requests of the cache, all a second.
void WriteCsv(std::ostream& out, const Load& load);

// A bar chart in text: requests a second over the day, 15 minutes a column, each the busiest minute of them. What is
// drawn is the root of the rate, so that a peak leaves something to see of the rest.
std::string Picture(const Load& load);

// 1234567.8 as "1,234,568"; one decimal below ten.
std::string NumberText(double number);
// "14:02:00"
std::string TimeText(TimeMs time);

} // namespace fleet
