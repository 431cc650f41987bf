// What /metrics tells, in the text format 0.0.4 of Prometheus.
#pragma once

#include "server/FigureSource.h"
#include "server/PollStatistics.h"

#include <string>

namespace reportd {

inline constexpr std::string_view kMetricsType = "text/plain; version=0.0.4; charset=utf-8";

// Times are moments in Unix time, never ages: who reads them has a clock of its own. What is not known is left out.
// statistics: null when nothing is polled. Throws what the source throws.
std::string MetricsDocument(CFigureSource& source, const CPollStatistics* statistics);

} // namespace reportd
