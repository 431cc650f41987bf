// The thread that polls.
#pragma once

#include "server/live/Poller.h"

#include <memory>

namespace reportd {

// Polls whatever is due, from its construction to its destruction. Between polls it sleeps until the next is due: by
// the system clock, so that a machine that was suspended, or whose clock was set forward, polls at once. It looks at
// the clock at least every five minutes, which bounds what a clock that was set back can delay.
class CPollThread {
public:
    // poller, fetcher (the poller's): used by this thread alone for as long as it lives. log: called on this thread.
    // clock: Japan's, ReadJapanClock but in tests. Throws std::system_error when no thread can be started.
    CPollThread(CPoller& poller, CFetcher& fetcher, LogLine log, std::function<LocalTime()> clock);
    // Interrupts a running fetch, for good, and waits for the thread: about a second.
    ~CPollThread();
    CPollThread(const CPollThread&) = delete;
    CPollThread& operator=(const CPollThread&) = delete;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace reportd
