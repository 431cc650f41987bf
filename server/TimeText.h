// Times as text, the same in every locale. All functions may be called from any thread.
#pragma once

#include "server/JapanTime.h"

#include <optional>
#include <string>
#include <string_view>

namespace reportd {

// Each appends; years 0000 to 9999.
void PutDate(std::string& text, std::chrono::year_month_day date); // 2012-07-02
void PutTime(std::string& text, LocalTime time);                   // 2012-07-02T13:00:00
void PutJapanTime(std::string& text, LocalTime time);              // 2012-07-02T13:00:00+09:00

std::string DateText(std::chrono::year_month_day date);
std::string JapanTimeText(LocalTime time);

// As HTTP has it (RFC 9110, 5.6.7): Mon, 02 Jul 2012 04:00:00 GMT
std::string HttpDateText(std::chrono::sys_seconds moment);

// A day of the calendar in the form 2012-07-02; none for any other text.
std::optional<std::chrono::year_month_day> ParseDate(std::string_view text);

// Japan's time in the form 2012-07-02T13:00, with :SS and +09:00 if wanted; none for any other text.
std::optional<LocalTime> ParseJapanTime(std::string_view text);

} // namespace reportd
