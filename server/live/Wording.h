// How the commands of ampora-reportd say things.
#pragma once

#include "server/Figures.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace reportd {

// All functions may be called from any thread.

// "2026-04-20 14:55", Japan's time.
std::string MomentText(LocalTime moment);
// "14:55", without the day.
std::string TimeOfDayText(LocalTime moment);

// The company's key, "tokyo"; "?" for a number that the catalogue does not have.
std::string KeyOfCompany(int siteNumber);
// The number of the company with this key; none when there is no such company.
std::optional<int> SiteNumberOf(std::string_view key);
// "tokyo, tohoku, ...".
std::string AllCompanyKeys();

// A text of strangers as a terminal may show it: at most 200 bytes, '?' in the place of control characters.
std::string Shown(std::string_view text);

// Lines of columns, two spaces between them, none at the ends of lines; each line ends with '\n'. Cells are ASCII; rows
// may be of different lengths.
std::string AlignColumns(const std::vector<std::vector<std::string>>& rows);

} // namespace reportd
