// The escape sequences of colours (ECMA-48), which are the terminal's own, so that they suit a light and a dark one.
// Only for a terminal that allows them (platform/Terminal.h).
#pragma once

#include <string_view>

namespace ctl {

inline constexpr std::string_view kRed = "\x1b[31m";
inline constexpr std::string_view kGreen = "\x1b[32m";
inline constexpr std::string_view kYellow = "\x1b[33m";
inline constexpr std::string_view kBlue = "\x1b[34m";
inline constexpr std::string_view kFaint = "\x1b[2m";
inline constexpr std::string_view kPlain = "\x1b[0m"; // ends any of them

} // namespace ctl
