// The frame of tests of the commands: settings, a store, and the companies' servers on loopback.
#pragma once

#include "server/live/LiveSettings.h"
#include "server/retrieval/Fetcher.h"
#include "server/store/FigureStore.h"
#include "testing/LoopbackServer.h"
#include "testing/published/Generator.h"
#include "testing/ScratchFolder.h"

#include <gmock/gmock.h>

#include <map>
#include <mutex>
#include <sstream>

namespace testing_support {

inline constexpr std::chrono::year_month_day kToday = std::chrono::year(2026) / 4 / 20;

class CCommandTest : public testing::Test {
protected:
    CCommandTest()
    {
        for (const char* const name : {"http_proxy", "all_proxy", "ALL_PROXY"}) {
            unsetenv(name); // NOLINT(concurrency-mt-unsafe): the server's thread does not read the environment
        }
        for (auto& [siteNumber, company] : m_settings.companies) {
            const std::string folder = Url("/" + std::string(catalogue::FindCompany(siteNumber)->key.Narrow()));
            company.todayUrl = folder + "/today.csv";
            company.pastUrl = folder + "/%Y%m%d.csv";
        }
        m_settings.store = m_scratch.Path() / "state" / "figures.sqlite";
    }

    std::string Url(const std::string& path) const
    {
        return "http://127.0.0.1:" + std::to_string(m_server.Port()) + path;
    }

    // What the server answers at a path; without it, 404.
    void Serve(const std::string& path, const HttpAnswer& answer)
    {
        const std::lock_guard guard(m_lock);
        m_answers[path] = answer;
    }
    // The file of today of all companies, as it stood at this moment.
    void ServeToday(reportd::LocalTime published)
    {
        for (const auto& [key, layout] : kLayouts) {
            Serve("/" + std::string(key) + "/today.csv", {.body = PublishedCsv(layout, kToday, published)});
        }
    }

    // What the server was asked for, in order.
    std::vector<std::string> Asked() const
    {
        std::vector<std::string> targets;
        for (const auto& exchange : m_server.Exchanges()) {
            targets.push_back(exchange.target);
        }
        return targets;
    }

    // A day's file as it stands when the day has been closed.
    static std::string ClosedCsv(Layout layout, std::chrono::year_month_day date)
    {
        return PublishedCsv(layout, date, ClosedAt(date));
    }
    static std::size_t ClosedCount(Layout layout, std::chrono::year_month_day date)
    {
        return TrueFigures(layout, date, ClosedAt(date)).size();
    }
    static reportd::LocalTime ClosedAt(std::chrono::year_month_day date)
    {
        return std::chrono::local_days(date) + std::chrono::days(1) + std::chrono::minutes(90);
    }

    static constexpr std::array kLayouts = {std::pair{"tokyo", Layout::kTokyoD1}, std::pair{"tohoku", Layout::kTohoku},
                                            std::pair{"chubu", Layout::kChubu}, std::pair{"kansai", Layout::kKansai},
                                            std::pair{"kyushu", Layout::kKyushu}};

    std::mutex m_lock;
    std::map<std::string, HttpAnswer> m_answers;
    CLoopbackServer m_server{[this](const HttpExchange& exchange) {
        const std::lock_guard guard(m_lock);
        const auto found = m_answers.find(exchange.target);
        return found == m_answers.end() ? HttpAnswer{.status = 404} : found->second;
    }};
    CScratchFolder m_scratch;
    reportd::LiveSettings m_settings = reportd::DefaultLiveSettings();
    reportd::CFetcher m_fetcher{
        reportd::FetchLimits{.connect = std::chrono::milliseconds(2000), .total = std::chrono::milliseconds(2000)}};
    std::ostringstream m_out;
};

} // namespace testing_support
