// What single cells of a published file say. All functions are pure and may be called from any thread; the cells are
// those of FoldCell.
#pragma once

#include "server/Figures.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace reportd {

// A whole number with an optional minus sign, of at most 12 digits; none for anything else.
std::optional<std::int64_t> WholeNumber(std::string_view cell);

// Year, month and day of the calendar between slashes, "2026/4/20" or "2026/04/20"; none for anything else.
std::optional<std::chrono::year_month_day> DateOf(std::string_view cell);

// Hour and minute of a day, "0:00" to "23:59", padded or not; none for anything else.
std::optional<std::chrono::minutes> TimeOf(std::string_view cell);

// Start of the hour that a slot names, "13:00~14:00"; the day's last one ends at 24:00 or 0:00. None for anything else,
// a slot of another length included.
std::optional<std::chrono::hours> SlotOf(std::string_view cell);

} // namespace reportd
