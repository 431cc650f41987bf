// Addresses that contain the day: "https://example.org/demand_%Y%m%d.csv".
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace reportd {

// The address of a day: %Y becomes the year in four digits, %m the month and %d the day in two. Everything else stays
// as it is. date: must be a day of the calendar. Any thread.
std::string UrlOfDay(std::string_view pattern, std::chrono::year_month_day date);

// Whether each day has an address of its own, so that yesterday's file can still be had.
bool HasDailyUrl(std::string_view pattern);

} // namespace reportd
