#include "server/live/PollThread.h"

#include "server/retrieval/Fetcher.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>

namespace reportd {

namespace {

constexpr std::chrono::minutes kLongestWait{5};

} // namespace

struct CPollThread::Impl {
    Impl(CPoller& thePoller, CFetcher& theFetcher, LogLine theLog, std::function<LocalTime()> theClock)
        : poller(thePoller), fetcher(theFetcher), log(std::move(theLog)), clock(std::move(theClock)),
          thread([this] { Run(); })
    {
    }

    ~Impl()
    {
        {
            const std::lock_guard lock(mutex);
            isEnding = true;
        }
        changed.notify_all();
        fetcher.Interrupt();
        thread.join();
    }

    void Run()
    {
        while (WaitUntil(PollDue())) {
        }
    }

    LocalTime PollDue()
    {
        const LocalTime now = clock();
        try {
            return poller.PollDue(now);
        } catch (const std::exception& error) {
            log("polling failed: " + std::string(error.what()));
            return now + kLongestWait;
        }
    }

    // False when the end comes before.
    bool WaitUntil(LocalTime due)
    {
        std::unique_lock lock(mutex);
        for (LocalTime now = clock(); now < due && !isEnding; now = clock()) {
            changed.wait_for(lock, std::min<std::chrono::seconds>(due - now, kLongestWait),
                             [this] { return isEnding; });
        }
        return !isEnding;
    }

    CPoller& poller;
    CFetcher& fetcher;
    const LogLine log;
    const std::function<LocalTime()> clock;

    std::mutex mutex; // guards what follows
    std::condition_variable changed;
    bool isEnding = false;

    std::thread thread; // the last to be made
};

CPollThread::CPollThread(CPoller& poller, CFetcher& fetcher, LogLine log, std::function<LocalTime()> clock)
    : m_impl(std::make_unique<Impl>(poller, fetcher, std::move(log), std::move(clock)))
{
}

CPollThread::~CPollThread() = default;

} // namespace reportd
