// A live source with what pages have to stand: gaps, old figures, companies that publish less, too high demand.
#pragma once

#include "testing/ScriptedSource.h"

#include <memory>

namespace testing_support {

// When its newest figures were published: Sunday, 22 November 2026, 14:58.
inline constexpr std::chrono::year_month_day kOddDay{std::chrono::year{2026}, std::chrono::November,
                                                     std::chrono::day{22}};
inline constexpr reportd::LocalTime kOddNow =
    std::chrono::local_days{kOddDay} + std::chrono::hours{14} + std::chrono::minutes{58};

// Tokyo: values every 5 minutes but for 10:00 to 10:55, with solar and wind; supply of every hour but 9:00, so that the
// usage rate of an hour is 92.0, 92.1, 95.0, 95.1, 97.0, 97.1 % and again; peaks of today and tomorrow. Tohoku: the
// same, last confirmed at 12:00. Chubu: values by hour only, no supply. Kansai: nothing. Kyushu: 20 MW of demand for 10
// of supply, of which the peak lies in another hour.
std::unique_ptr<CScriptedSource> MakeOddSource(const std::string& name);

} // namespace testing_support
