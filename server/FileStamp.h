// Dates and times in names of files.
#pragma once

#include "server/Figures.h"

#include <string>

namespace reportd {

// "YYYYMMDD". date: a day of the calendar with a year of four digits. Any thread, as the function below.
inline std::string FileStamp(std::chrono::year_month_day date)
{
    return std::to_string(static_cast<int>(date.year()) * 10000 +
                          static_cast<int>(static_cast<unsigned>(date.month())) * 100 +
                          static_cast<int>(static_cast<unsigned>(date.day())));
}

// "YYYYMMDD-HHMMSS".
inline std::string FileStamp(LocalTime time)
{
    const std::chrono::local_days day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::hh_mm_ss clock(time - day);
    constexpr long kLeadingDigit = 1'000'000; // keeps the zeros
    const long digits =
        kLeadingDigit + clock.hours().count() * 10'000 + clock.minutes().count() * 100 + clock.seconds().count();
    return FileStamp(std::chrono::year_month_day(day)) + "-" + std::to_string(digits).substr(1);
}

} // namespace reportd
