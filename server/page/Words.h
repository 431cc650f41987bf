// Figures, times and dates in the words of a page. All functions are pure and may be called from any thread.
#pragma once

#include "server/Figures.h"
#include "server/page/Texts.h"

#include <string>

namespace reportd {

// How tight supply is at a usage rate: up to 92 %, 95 %, 97 %, above.
enum class UsageBand { kStable, kLittleTight, kTight, kVeryTight };

// tenths: the rate in tenths of a percent, as it is shown.
UsageBand BandOf(unsigned tenths);

std::string_view NameOf(UsageBand band, Language language);

// Names the band in the style sheet: "stable", "little-tight", "tight", "very-tight".
std::string_view StyleOf(UsageBand band);

// "Tokyo Electric Power", "東京電力". siteNumber: one of the catalogue's.
std::string_view CompanyName(int siteNumber, Language language);

// "Sunday, 22 November 2026", "2026年11月22日（日）". date: a day of the calendar, here and below.
std::string DateText(std::chrono::year_month_day date, Language language);

// "9:05".
std::string ClockText(LocalTime time);

// "14:00–15:00"; an interval that ends with its day ends at "24:00".
std::string IntervalText(LocalTime start, LocalTime end, Language language);

// "41,230 MW".
std::string MegawattText(std::uint64_t megawatts, Language language);

// "41,230".
std::string NumberText(std::uint64_t megawatts);

// "87.3".
std::string RateNumber(unsigned tenths);

// "87.3 %".
std::string RateText(unsigned tenths, Language language);

// "3 minutes ago", in whole minutes, hours from one on, days from two on. A time to come is "just now", as clocks
// differ.
std::string AgeText(std::chrono::seconds age, Language language);

// The day of a time.
inline std::chrono::year_month_day DayOf(LocalTime time)
{
    return std::chrono::year_month_day(std::chrono::floor<std::chrono::days>(time));
}

// The day so many days later; earlier when count is negative.
inline std::chrono::year_month_day DaysAfter(std::chrono::year_month_day date, int count)
{
    return std::chrono::year_month_day(std::chrono::local_days(date) + std::chrono::days{count});
}

} // namespace reportd
