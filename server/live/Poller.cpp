#include "server/live/Poller.h"

#include "server/live/LiveSettings.h"
#include "server/live/RawFiles.h"
#include "server/PollStatistics.h"
#include "server/retrieval/Fetcher.h"
#include "server/retrieval/PollSchedule.h"
#include "server/retrieval/UrlPattern.h"
#include "server/store/FigureStore.h"

#include <algorithm>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

namespace reportd {

namespace {

// When the closed day's file is fetched once more: companies renew it up to an hour and ten minutes after midnight.
constexpr minutes kClosingFrom{90};
constexpr unsigned kClosingTries = 3;

constexpr std::size_t kDetailLimit = 300;

struct CompanyPolls {
    int siteNumber;
    const CompanySettings* settings;
    PollState state;
    local_days closingDay = {};  // the day on which the tries below were made
    unsigned closingTries = 0;   // to fetch the file of the day before
    std::string stateFault = {}; // why the state could not be saved the last time; empty: it could
    std::string rawFault = {};   // the same of raw files

    PollPace Pace() const { return {settings->interval, settings->politeSecond}; }
};

// The file that a poll asks for.
struct Target {
    std::string url;
    year_month_day date;
    bool isClosing = false; // of the day before
};

// What came of a poll.
struct Outcome {
    std::string failure = {}; // reason key; empty: none
    std::string detail = {};  // for people, of a failure
    std::optional<std::chrono::seconds> retryAfter = {};
    std::optional<std::chrono::seconds> freshFor = {};
};

// Few keys, since each is a time series of its own in the metrics.
std::string KeyOfStatus(long status)
{
    switch (status) {
    case 401:
    case 403:
        return "http_forbidden";
    case 404:
    case 410:
        return "http_not_found";
    case 429:
        return "http_too_many";
    default:
        return status >= 500 && status <= 599 ? "http_server" : "http_other";
    }
}

// One line for the log, whatever the other side has put into it.
std::string Line(const std::string& text)
{
    std::string line = text.substr(0, kDetailLimit);
    std::replace_if(
        line.begin(), line.end(), [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; }, '?');
    return line;
}

std::string Joined(const std::vector<std::string>& texts, const char* between)
{
    std::string joined;
    for (const std::string& text : texts) {
        joined += (joined.empty() ? "" : between) + text;
    }
    return joined;
}

} // namespace

struct CPoller::Impl {
    const LiveSettings& settings;
    CFigureStore& store;
    CFetcher& fetcher;
    CRawFiles& rawFiles;
    CPollStatistics& statistics;
    Jitter jitter;
    LogLine log;
    std::vector<CompanyPolls> companies = {};
    local_days trimmedOn = {};

    void AddCompanies()
    {
        for (const auto& [siteNumber, company] : settings.companies) {
            if (company.isEnabled) {
                companies.push_back(
                    {.siteNumber = siteNumber, .settings = &company, .state = store.LoadPollState(siteNumber)});
            }
        }
    }

    void Log(const CompanyPolls& company, const std::string& text) const
    {
        const catalogue::Company* entry = catalogue::FindCompany(company.siteNumber);
        const std::string name =
            entry == nullptr ? std::to_string(company.siteNumber) : std::string(entry->key.Narrow());
        log(name + ": " + Line(text));
    }

    // Runs what keeps something for later, which must not fail a poll. A fault is told once.
    template <typename Keep>
    void TryToKeep(CompanyPolls& company, std::string CompanyPolls::*lastFault, const Keep& keep) const
    {
        std::string fault;
        try {
            keep();
        } catch (const std::runtime_error& error) {
            fault = error.what();
        }
        if (fault != company.*lastFault && !fault.empty()) {
            Log(company, fault);
        }
        company.*lastFault = fault;
    }

    void SaveState(CompanyPolls& company)
    {
        TryToKeep(company, &CompanyPolls::stateFault, [&] { store.SavePollState(company.siteNumber, company.state); });
    }

    // --- When --------------------------------------------------------------------------------------------------------

    // Settles when a company is polled next, after a start or a change of the clock.
    void Plan(CompanyPolls& company, LocalTime now) const
    {
        company.state.nextPoll =
            DuePoll(company.Pace(), company.state.nextPoll, company.state.lastAttempt, now, jitter());
    }

    // The company whose turn comes first; there is one.
    CompanyPolls& First()
    {
        return *std::min_element(companies.begin(), companies.end(),
                                 [](const CompanyPolls& left, const CompanyPolls& right) {
                                     return left.state.nextPoll < right.state.nextPoll;
                                 });
    }

    LocalTime PollDue(LocalTime now)
    {
        TrimOncePerDay(now);
        if (companies.empty()) {
            return LocalTime::max();
        }
        for (CompanyPolls& company : companies) {
            Plan(company, now);
        }
        if (First().state.nextPoll <= now) {
            Poll(First(), now);
        }
        return *First().state.nextPoll;
    }

    void TrimOncePerDay(LocalTime now)
    {
        const local_days today = std::chrono::floor<days>(now);
        if (!settings.retention || trimmedOn == today) {
            return;
        }
        trimmedOn = today;
        try {
            store.Trim(year_month_day(today - *settings.retention));
        } catch (const std::runtime_error& error) {
            log(Line(error.what()));
        }
    }

    // --- What --------------------------------------------------------------------------------------------------------

    bool WantsClosing(CompanyPolls& company, LocalTime now)
    {
        const local_days today = std::chrono::floor<days>(now);
        if (company.closingDay != today) {
            company.closingDay = today;
            company.closingTries = 0;
        }
        // Today's comes first, after a failure as well.
        const bool hasToday = company.state.failures == 0 && company.state.lastSuccess.value_or(LocalTime()) >= today;
        if (!HasDailyUrl(company.settings->todayUrl) || !hasToday || now < today + kClosingFrom ||
            company.closingTries == kClosingTries) {
            return false;
        }
        const DayState yesterday = store.State(company.siteNumber, year_month_day(today - days(1)));
        return yesterday.observed.value_or(LocalTime()) < today + kClosingFrom;
    }

    Target ChooseTarget(CompanyPolls& company, LocalTime now)
    {
        const bool isClosing = WantsClosing(company, now);
        company.closingTries += isClosing ? 1 : 0;
        const year_month_day date(std::chrono::floor<days>(now) - days(isClosing ? 1 : 0));
        return {UrlOfDay(company.settings->todayUrl, date), date, isClosing};
    }

    FetchRequest RequestOf(const CompanyPolls& company, const Target& target) const
    {
        FetchRequest request = {
            .url = target.url, .agent = company.settings->agent, .authorityFile = settings.authorityFile};
        if (company.state.url == target.url) {
            request.etag = company.state.etag;
            request.lastModified = company.state.lastModified;
        }
        return request;
    }

    // --- A poll ------------------------------------------------------------------------------------------------------

    void Poll(CompanyPolls& company, LocalTime now)
    {
        statistics.CountAttempt(company.siteNumber);
        company.state.lastAttempt = now;
        // Before the request: a program that is killed and started again and again must not ask each time.
        company.state.nextPoll = NextPoll(company.Pace(), {.failures = company.state.failures}, now, jitter());
        SaveState(company);
        const Outcome outcome = Try(company, now);
        if (outcome.failure == "interrupted") {
            return;
        }
        Note(company, outcome);
        company.state.nextPoll = NextPoll(
            company.Pace(),
            {.failures = company.state.failures, .retryAfter = outcome.retryAfter, .freshFor = outcome.freshFor}, now,
            jitter());
        SaveState(company);
    }

    Outcome Try(CompanyPolls& company, LocalTime now)
    {
        try {
            const Target target = ChooseTarget(company, now);
            const FetchRequest request = RequestOf(company, target);
            FetchAnswer answer = fetcher.Fetch(request);
            Outcome outcome = {.failure = answer.failure,
                               .detail = answer.detail,
                               .retryAfter = answer.retryAfter,
                               .freshFor = answer.freshFor};
            const bool isConditional = !request.etag.empty() || !request.lastModified.empty();
            if (outcome.failure.empty()) {
                Take(company, target, answer, isConditional, now, outcome);
            }
            return outcome;
        } catch (const std::runtime_error& error) {
            return {.failure = "store", .detail = error.what()};
        }
    }

    // Takes an answer of HTTP.
    void Take(CompanyPolls& company, const Target& target, const FetchAnswer& answer, bool isConditional, LocalTime now,
              Outcome& outcome)
    {
        if (answer.status == 404 && !target.isClosing && HasDailyUrl(company.settings->todayUrl) &&
            IsBeforeNewDay(now)) {
            outcome.freshFor.reset(); // said of the error page
            return;                   // not there yet
        }
        if (answer.status != 200 && !(answer.status == 304 && isConditional)) {
            outcome.failure = KeyOfStatus(answer.status);
            outcome.detail = "HTTP status " + std::to_string(answer.status) + " from " + target.url;
            return;
        }
        try {
            if (answer.status == 304) {
                TakeUnchanged(company, target, now);
            } else {
                TakeFile(company, target, answer, now);
            }
        } catch (const CRefusedFile& refused) {
            outcome.failure = KeyOf(refused.Reason());
            outcome.detail = std::string(refused.what()) + ", in " + target.url;
            if (answer.status == 200 && company.state.lastFailure != outcome.failure) {
                TryToKeep(company, &CompanyPolls::rawFault,
                          [&] { rawFiles.KeepRefused(company.siteNumber, now, outcome.failure, answer.body); });
            }
        }
    }

    // The day that a file must be of. After midnight an address without a day may still have yesterday's.
    static year_month_day ExpectedDay(const CompanyPolls& company, const Target& target, year_month_day date,
                                      LocalTime now)
    {
        const year_month_day yesterday(std::chrono::floor<days>(now) - days(1));
        return !HasDailyUrl(company.settings->todayUrl) && IsBeforeNewDay(now) && date == yesterday ? yesterday
                                                                                                    : target.date;
    }

    void TakeFile(CompanyPolls& company, const Target& target, const FetchAnswer& answer, LocalTime now)
    {
        const PublishedFile file = ParsePublishedFile(answer.body, company.settings->extraHeadings);
        CheckTimeliness(file, ExpectedDay(company, target, file.date, now), now, company.settings->FrozenAfter());
        const std::size_t count = store.Append(company.siteNumber, file.date, file.figures, file.published, now);
        PollState& state = company.state;
        if (count > 0 || file.published != state.published) {
            TryToKeep(company, &CompanyPolls::rawFault,
                      [&] { rawFiles.KeepDay(company.siteNumber, file.date, answer.body); });
        }
        NoteLayout(company, file, answer.body, now);
        if (!target.isClosing) {
            state.published = file.published;
            state.etag = answer.etag;
            state.lastModified = answer.lastModified;
            state.url = target.url;
        }
        NoteSuccess(company, now, file.published);
    }

    // The file that was taken last is still the current one: which has to be as timely as if it had come again.
    void TakeUnchanged(CompanyPolls& company, const Target& target, LocalTime now)
    {
        const LocalTime published = company.state.published.value_or(LocalTime());
        PublishedFile file;
        file.published = published;
        file.date = DayOfLastFile(company, target, published);
        CheckTimeliness(file, ExpectedDay(company, target, file.date, now), now, company.settings->FrozenAfter());
        store.NoteCurrent(company.siteNumber, file.date, now);
        NoteSuccess(company, now, published);
    }

    // The day of the file with that stamp, which is the day before when that has the stamp. Today may have it as well,
    // for its peaks, which the file of the day before says.
    year_month_day DayOfLastFile(const CompanyPolls& company, const Target& target, LocalTime published)
    {
        const year_month_day yesterday(local_days(target.date) - days(1));
        const bool isYesterdays = !HasDailyUrl(company.settings->todayUrl) &&
                                  store.State(company.siteNumber, yesterday).published == published;
        return isYesterdays ? yesterday : target.date;
    }

    // --- What is noted -----------------------------------------------------------------------------------------------

    void NoteLayout(CompanyPolls& company, const PublishedFile& file, const std::string& bytes, LocalTime now)
    {
        const std::string layout = Joined(file.headings, "\n");
        if (layout == company.state.layout) {
            return;
        }
        if (!company.state.layout.empty()) {
            statistics.CountLayoutChange(company.siteNumber);
            Log(company, file.unknown.empty() ? "the file has another layout"
                                              : "the file has another layout; headings that mean nothing to us: " +
                                                    Joined(file.unknown, ", "));
        }
        TryToKeep(company, &CompanyPolls::rawFault, [&] { rawFiles.KeepLayout(company.siteNumber, now, bytes); });
        company.state.layout = layout;
    }

    void NoteSuccess(CompanyPolls& company, LocalTime now, LocalTime published)
    {
        company.state.lastSuccess = now;
        statistics.NoteSuccess(company.siteNumber, now, published);
    }

    void Note(CompanyPolls& company, const Outcome& outcome) const
    {
        PollState& state = company.state;
        if (outcome.failure.empty()) {
            if (state.failures > 0) {
                Log(company, "works again after " + std::to_string(state.failures) +
                                 (state.failures == 1 ? " failed poll" : " failed polls"));
            }
            state.failures = 0;
        } else {
            statistics.CountFailure(company.siteNumber, outcome.failure);
            if (state.lastFailure != outcome.failure) {
                Log(company, "poll failed (" + outcome.failure + "): " + outcome.detail);
            }
            ++state.failures;
        }
        state.lastFailure = outcome.failure;
    }
};

CPoller::CPoller(const LiveSettings& settings, CFigureStore& store, CFetcher& fetcher, CRawFiles& rawFiles,
                 CPollStatistics& statistics, Jitter jitter, LogLine log)
    : m_impl(std::make_unique<Impl>(
          Impl{settings, store, fetcher, rawFiles, statistics, std::move(jitter), std::move(log)}))
{
    m_impl->AddCompanies();
}

CPoller::~CPoller() = default;

LocalTime CPoller::PollDue(LocalTime now) { return m_impl->PollDue(now); }

Jitter RandomJitter()
{
    return [engine = std::mt19937(std::random_device()())]() mutable {
        return std::chrono::seconds(std::uniform_int_distribution<int>(0, kJitterLimit.count())(engine));
    };
}

} // namespace reportd
