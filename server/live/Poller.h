// Polls the companies and keeps what they publish.
#pragma once

#include "server/Figures.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace reportd {

class CFetcher;
class CFigureStore;
class CPollStatistics;
class CRawFiles;
struct LiveSettings;

// A random length from 0 to kJitterLimit.
using Jitter = std::function<std::chrono::seconds()>;
Jitter RandomJitter();
// Takes one line for the log, without its end.
using LogLine = std::function<void(const std::string&)>;

// Asks each enabled company for the file of the day in Japan, at its pace (server/retrieval/PollSchedule.h).
//
// Of a good file the figures that are new or changed go into the store; one that has not changed (304, or the same
// figures) counts as a success too, as long as it is not too old. Whatever fails leaves the store's figures as they are
// and is counted under a reason: that of the fetcher; "http_forbidden", "http_not_found", "http_too_many",
// "http_server" or "http_other"; that of a refused file (KeyOf); or "store". The log tells a failure once, until its
// reason changes or it has ended.
//
// After midnight, until kNewDayDue, the file of the day may be missing where each day has an address of its own, and
// where not, the file may still be yesterday's: it counts for yesterday then. From 01:30 on, once today's file has been
// taken, yesterday's own address, if there is one, is asked once more, in the place of one poll of today's, for what
// was published after midnight; at most three times in all.
//
// With a retention it deletes older days once a day.
class CPoller {
public:
    // All are used for as long as this lives; the store by nobody else. Throws as CFigureStore::LoadPollState.
    CPoller(const LiveSettings& settings, CFigureStore& store, CFetcher& fetcher, CRawFiles& rawFiles,
            CPollStatistics& statistics, Jitter jitter, LogLine log);
    ~CPoller();
    CPoller(const CPoller&) = delete;
    CPoller& operator=(const CPoller&) = delete;

    // Polls the company that has been due for longest, if any is. now: Japan's wall clock. When the next one is due,
    // which may be now or earlier; LocalTime::max() when no company is enabled. Blocks for as long as a fetch takes.
    // Throws std::bad_alloc when memory runs out, nothing else. One thread at a time.
    LocalTime PollDue(LocalTime now);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace reportd
