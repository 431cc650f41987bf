// Fetches past days into the store.
#pragma once

#include "server/live/LiveSettings.h"

#include <functional>
#include <iosfwd>
#include <memory>

namespace reportd {

class CFetcher;
class CFigureStore;

// Asks every enabled company that has an address for past days for the days that the store does not have completely (24
// hours of actual usage), the oldest first; all in rounds: in each round a company gets one request at most, and
// between two rounds there is a pause. An archive is fetched once for all of its days. A day that fails is told and
// left out; after three failures in a row a company is given up, as it is when its server asks for more than an hour of
// patience. Whatever was taken stays, so that a second run goes on where the first one ended.
class CBackfill {
public:
    // Waits for the pause between rounds; false: stop now.
    using Wait = std::function<bool(std::chrono::seconds)>;

    // All are used for as long as this lives. clock: Japan's time; out: takes a line for each day.
    CBackfill(const LiveSettings& settings, CFigureStore& store, CFetcher& fetcher, std::function<LocalTime()> clock,
              Wait wait, std::ostream& out);
    ~CBackfill();
    CBackfill(const CBackfill&) = delete;
    CBackfill& operator=(const CBackfill&) = delete;

    // first to last: days of the calendar, in order. True when the store has all of them afterwards, of the companies
    // that could be asked. A store that cannot be written throws std::runtime_error. Once only.
    bool Run(std::chrono::year_month_day first, std::chrono::year_month_day last, std::chrono::seconds pause);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace reportd
