// From the bytes of a published file to figures in the store.
#pragma once

#include "server/live/LiveSettings.h"

#include <cstddef>
#include <optional>
#include <string_view>

namespace reportd {

class CFigureStore;

// What was taken from a file.
struct Intake {
    std::chrono::year_month_day date = {}; // that the file is of
    std::size_t appended = 0;              // figures that were new or had changed
};

// Reads a saved or past file and appends its figures to the store as observed now, Japan's time. However long ago it
// was published, it counts. expected: the day that it must be of; none: whatever it says. Throws CRefusedFile, and as
// CFigureStore::Append.
Intake TakeSavedFile(CFigureStore& store, int siteNumber, const CompanySettings& company, std::string_view bytes,
                     std::optional<std::chrono::year_month_day> expected, LocalTime now);

// The day that the name of a file tells by eight digits in a row (YYYYMMDD), the first ones that are a day of the years
// 2000 to 2099; none when there are none.
std::optional<std::chrono::year_month_day> DayOfName(std::string_view name);

} // namespace reportd
