#include "testing/published/PollRig.h"

#include "testing/NoProxy.h"

#include <algorithm>
#include <set>

namespace testing_support {

using namespace reportd;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::year_month_day;

namespace {

// Short for those who wait for its end, long for a busy machine.
constexpr FetchLimits kLimits = {.connect = milliseconds(1500), .total = milliseconds(1500)};

} // namespace

FigureTable TableOf(const std::vector<Figure>& figures)
{
    FigureTable table;
    for (const Figure& figure : figures) {
        table[{figure.series, figure.record.start}] = figure.record.value;
    }
    return table;
}

std::string Difference(const FigureTable& left, const FigureTable& right)
{
    constexpr std::size_t kMost = 5;
    std::set<FigureTable::key_type> keys;
    for (const FigureTable* table : {&left, &right}) {
        for (const auto& [key, value] : *table) {
            keys.insert(key);
        }
    }
    const auto valueOf = [](const FigureTable& table, const FigureTable::key_type& key) {
        const auto found = table.find(key);
        return found == table.end() ? std::string("none") : std::to_string(found->second);
    };
    std::string text;
    std::size_t count = 0;
    for (const auto& key : keys) {
        if (valueOf(left, key) != valueOf(right, key) && ++count <= kMost) {
            const auto minute = std::chrono::floor<std::chrono::minutes>(key.second - PolledAt(0, 0)).count();
            text += std::string(InfoOf(key.first).key) + " at minute " + std::to_string(minute) + ": " +
                    valueOf(left, key) + ", " + valueOf(right, key) + "\n";
        }
    }
    return count == 0 ? text : text + std::to_string(count) + " differences\n";
}

CPollRig::CPollRig(LocalTime begin, const std::vector<Layout>& layouts)
    : m_now(begin), m_server(std::make_unique<CPublishedServer>([this] { return m_now.load(); }, layouts)),
      m_settings(ParseLiveSettings(m_server->Settings(), "settings")),
      m_store(std::make_unique<CFigureStore>(m_folder.Path() / "figures.sqlite", CFigureStore::Access::kReadWrite,
                                             nullptr)),
      m_fetcher(kLimits), m_rawFiles(m_folder.Path() / "raw")
{
    UseNoProxy();
    Restart();
}

void CPollRig::Restart()
{
    m_statistics = std::make_unique<CPollStatistics>();
    m_poller = std::make_unique<CPoller>(
        m_settings, *m_store, m_fetcher, m_rawFiles, *m_statistics, [] { return seconds(7); },
        [this](const std::string& line) { m_log.push_back(line); });
}

LocalTime CPollRig::PollDue()
{
    std::map<int, std::uint64_t> before;
    for (const auto& [siteNumber, company] : m_settings.companies) {
        before[siteNumber] = m_statistics->Of(siteNumber).attempts;
    }
    const LocalTime now = m_now.load() + m_ahead;
    const LocalTime due = m_poller->PollDue(now);
    for (const auto& [siteNumber, attempts] : before) {
        if (m_statistics->Of(siteNumber).attempts > attempts) {
            m_polls[siteNumber].push_back(now);
            m_lastPoll = m_now;
        }
    }
    return due;
}

void CPollRig::RunTo(LocalTime end)
{
    for (;;) {
        const LocalTime due = PollDue();
        const LocalTime now = m_now.load();
        if (due <= now + m_ahead) {
            continue;
        }
        m_now = std::min(end, due - m_ahead);
        if (due - m_ahead > end) {
            return;
        }
    }
}

void CPollRig::RunOnePoll()
{
    const auto count = [this] {
        std::size_t all = 0;
        for (const auto& [siteNumber, polls] : m_polls) {
            all += polls.size();
        }
        return all;
    };
    const std::size_t before = count();
    while (count() == before) {
        const LocalTime due = PollDue();
        if (count() == before) {
            m_now = std::max(m_now.load(), due - m_ahead);
        }
    }
}

FigureTable CPollRig::Figures(int siteNumber, year_month_day date, std::optional<LocalTime> asOf)
{
    FigureTable table;
    for (const SeriesInfo& info : kAllSeries) {
        for (const ReportRecord& record : m_store->Read(siteNumber, info.series, date, asOf)) {
            table[{info.series, record.start}] = record.value;
        }
    }
    return table;
}

std::uint64_t CPollRig::Failures(int siteNumber, const std::string& key) const
{
    const auto failures = m_statistics->Of(siteNumber).failures;
    const auto found = failures.find(key);
    return found == failures.end() ? 0 : found->second;
}

std::vector<std::string> CPollRig::RawNames() const
{
    std::vector<std::string> names;
    const std::filesystem::path folder = m_folder.Path() / "raw";
    if (std::filesystem::exists(folder)) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
            if (!entry.is_directory()) {
                names.push_back(entry.path().filename().string());
            }
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace testing_support
