// A poller with all that it needs, on a clock that the test moves. Linux only.
#pragma once

#include "server/live/LiveSettings.h"
#include "server/live/Poller.h"
#include "server/live/RawFiles.h"
#include "server/PollStatistics.h"
#include "server/retrieval/Fetcher.h"
#include "server/store/FigureStore.h"
#include "testing/published/PublishedServer.h"
#include "testing/ScratchFolder.h"

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace testing_support {

inline constexpr std::chrono::year_month_day kPolledDay{std::chrono::year{2026}, std::chrono::month{11},
                                                        std::chrono::day{22}};

// A moment of kPolledDay, or with more than 23 hours of a later day.
constexpr reportd::LocalTime PolledAt(int hour, int minute, int second = 0)
{
    return std::chrono::local_days{kPolledDay} + std::chrono::hours{hour} + std::chrono::minutes{minute} +
           std::chrono::seconds{second};
}

// Figures by the start of their interval.
using FigureTable = std::map<std::pair<reportd::Series, reportd::LocalTime>, std::uint64_t>;

FigureTable TableOf(const std::vector<reportd::Figure>& figures);

// The first differences of two tables in words, a line each; empty when they are the same.
std::string Difference(const FigureTable& left, const FigureTable& right);

// Polls synthetic companies (CPublishedServer) over HTTP on loopback, into a store in a scratch folder.
class CPollRig {
public:
    // Begins at a moment; polls nothing yet. layouts: the companies'. The limits of time are short.
    CPollRig(reportd::LocalTime begin, const std::vector<Layout>& layouts);

    // Lets time pass up to a moment, polling whatever falls due at the second in which it does.
    void RunTo(reportd::LocalTime end);
    // Lets time pass until the next poll, which it then has made.
    void RunOnePoll();
    // Sets the clock of our machine; the companies' goes on as before.
    void SetClock(std::chrono::seconds ahead) { m_ahead = ahead; }
    // Ends every further request, as the end of the program does.
    void Interrupt() { m_fetcher.Interrupt(); }
    // A new poller on the same store, as after a restart.
    void Restart();

    reportd::LocalTime Now() const { return m_now; }
    // When a company was polled last, by the companies' clock.
    reportd::LocalTime LastPoll() const { return m_lastPoll; }
    CPublishedServer& Server() const { return *m_server; }
    reportd::CFigureStore& Store() { return *m_store; }
    const reportd::CPollStatistics& Statistics() const { return *m_statistics; }
    reportd::LiveSettings& Settings() { return m_settings; }
    const std::vector<std::string>& Log() const { return m_log; }
    // When each company was polled, by our machine's clock; by site number.
    const std::map<int, std::vector<reportd::LocalTime>>& Polls() const { return m_polls; }
    std::filesystem::path Folder() const { return m_folder.Path(); }

    // All figures of a day in the store, as known at a moment or now.
    FigureTable Figures(int siteNumber, std::chrono::year_month_day date,
                        std::optional<reportd::LocalTime> asOf = std::nullopt);
    // How often a failure was counted.
    std::uint64_t Failures(int siteNumber, const std::string& key) const;
    // Names of the raw files that were kept of all companies, without their folders.
    std::vector<std::string> RawNames() const;

private:
    reportd::LocalTime PollDue();

    CScratchFolder m_folder{FolderInMemory()};
    std::atomic<reportd::LocalTime> m_now; // the companies'; read by the server's thread
    std::chrono::seconds m_ahead{0};
    reportd::LocalTime m_lastPoll = {};
    std::unique_ptr<CPublishedServer> m_server;
    reportd::LiveSettings m_settings;
    std::unique_ptr<reportd::CFigureStore> m_store;
    reportd::CFetcher m_fetcher;
    reportd::CRawFiles m_rawFiles;
    std::unique_ptr<reportd::CPollStatistics> m_statistics;
    std::vector<std::string> m_log;
    std::map<int, std::vector<reportd::LocalTime>> m_polls;
    std::unique_ptr<reportd::CPoller> m_poller;
};

} // namespace testing_support
