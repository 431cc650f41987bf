// Checks whether the companies' files can be downloaded and parsed.
#pragma once

#include "server/live/LiveSettings.h"

#include <iosfwd>

namespace reportd {

class CFetcher;

// Fetches the file of today from each enabled company once and prints two tables and, below them, a line for each
// problem with what to do about it. The first table has a line for each company: whether it answered, whether its file
// was understood, its stamp. The second one has a line for each series: the newest value that was measured, the
// forecast value of the current hour, or today's peak, with the time at which its interval begins. A file that is not
// there yet, soon after midnight, is no problem; neither are headings that mean nothing, but they are told.
// now: Japan's time. True when there is no problem. Nothing is stored.
bool CheckCompanies(const LiveSettings& settings, CFetcher& fetcher, LocalTime now, std::ostream& out);

} // namespace reportd
