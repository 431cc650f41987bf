#include "server/Live.h"

#include "server/Answers.h"
#include "server/JapanTime.h"
#include "server/live/Backfill.h"
#include "server/live/Check.h"
#include "server/live/Import.h"
#include "server/live/LiveSettings.h"
#include "server/live/Poller.h"
#include "server/live/PollThread.h"
#include "server/live/RawFiles.h"
#include "server/live/StopSignal.h"
#include "server/live/Wording.h"
#include "server/PollStatistics.h"
#include "server/ReportServer.h"
#include "server/retrieval/Fetcher.h"
#include "server/store/StoreSource.h"
#include "server/TimeText.h"

#include <filesystem>
#include <iostream>

namespace reportd {
namespace {

// Any thread: one write for each line.
void Log(const std::string& text) { std::cerr << "ampora-reportd: " + text + "\n"; }

LiveSettings LoadSettings(const Options& options)
{
    if (options.config) {
        return LoadLiveSettings(*options.config);
    }
    return std::filesystem::exists(kDefaultSettingsFile) ? LoadLiveSettings(kDefaultSettingsFile)
                                                         : DefaultLiveSettings();
}

// The file of the store, which there has to be a place for.
const std::filesystem::path& StoreOf(const LiveSettings& settings)
{
    if (settings.store.empty()) {
        throw CSettingsError("there is no folder for the figures: set store in the settings, or HOME");
    }
    return settings.store;
}

// Runs a verb, which gives the exit code. Settings that are not understood are told without the text of --help, which
// says nothing about them.
template <class Run>
int WithSettings(const Options& options, const Run& run)
{
    constexpr int kNotUnderstood = 2;
    try {
        return run(LoadSettings(options));
    } catch (const CSettingsError& error) {
        Log(error.what());
        return kNotUnderstood;
    }
}

std::string SayWhatIsPolled(const LiveSettings& settings)
{
    std::string keys;
    for (const catalogue::Company& company : catalogue::kCompanies) {
        if (settings.companies.at(company.siteNumber).isEnabled) {
            keys += (keys.empty() ? "" : ", ") + std::string(company.key.Narrow());
        }
    }
    return "keeping figures in " + settings.store.string() + "; " +
           (keys.empty() ? "no company is enabled" : "polling " + keys);
}

int Serve(const Options& options, const LiveSettings& settings)
{
    CFigureStore store(StoreOf(settings), CFigureStore::Access::kReadWrite, Log);
    CStoreSource source(settings.store);
    CPollStatistics statistics;
    CAnswers answers(source, &statistics, {settings.staleAfter, settings.noneAfter}, Log);
    CReportServer server(options.listen.value_or(settings.listen), options.port.value_or(settings.port), answers,
                         ReadJapanClock);
    server.StopOnSignals();
    CRawFiles rawFiles(settings.RawFolder());
    CFetcher fetcher;
    CPoller poller(settings, store, fetcher, rawFiles, statistics, RandomJitter(), Log);
    Log(SayWhatIsPolled(settings));
    std::cout << "ampora-reportd: serving live data on http://" << server.Endpoint() << std::endl;
    const CPollThread thread(poller, fetcher, Log, ReadJapanClock);
    server.Run();
    return 0;
}

int Check(const LiveSettings& settings)
{
    CFetcher fetcher;
    const CStopSignal stop([&] { fetcher.Interrupt(); });
    const bool isGood = CheckCompanies(settings, fetcher, ReadJapanClock(), std::cout);
    return isGood && !stop.HasCome() ? 0 : 1;
}

int Import(const Options& options, const LiveSettings& settings)
{
    std::optional<int> siteNumber;
    if (options.company) {
        siteNumber = SiteNumberOf(*options.company);
        if (!siteNumber) {
            throw COptionsError("--company needs one of " + AllCompanyKeys() + ", not \"" + *options.company + "\"");
        }
    }
    const CStopSignal stop({});
    CFigureStore store(StoreOf(settings), CFigureStore::Access::kReadWrite, Log);
    CImport import(settings, store, ReadJapanClock, std::cout);
    bool isGood = true;
    for (const std::string& file : options.files) {
        if (stop.HasCome()) {
            Log("stopped before " + Shown(file));
            return 1;
        }
        isGood = import.ImportFile(file, siteNumber) && isGood;
    }
    return isGood ? 0 : 1;
}

int FetchPastDays(const Options& options, const LiveSettings& settings)
{
    const auto today = std::chrono::floor<std::chrono::days>(ReadJapanClock());
    const std::chrono::year_month_day yesterday{today - std::chrono::days(1)};
    const std::chrono::year_month_day last = options.lastDay.value_or(yesterday);
    if (options.firstDay > yesterday || last > yesterday) {
        throw COptionsError("backfill fetches days before today, which is " +
                            DateText(std::chrono::year_month_day{today}) + " in Japan");
    }
    CFetcher fetcher;
    CStopSignal stop([&] { fetcher.Interrupt(); });
    CFigureStore store(StoreOf(settings), CFigureStore::Access::kReadWrite, Log);
    CBackfill backfill(
        settings, store, fetcher, ReadJapanClock, [&](std::chrono::seconds pause) { return !stop.WaitFor(pause); },
        std::cout);
    return backfill.Run(options.firstDay, last, options.pause) ? 0 : 1;
}

} // namespace

bool HasLiveSources() { return true; }

int RunLive(const Options& options)
{
    return WithSettings(options, [&](const LiveSettings& settings) { return Serve(options, settings); });
}

int RunCheck(const Options& options)
{
    return WithSettings(options, [](const LiveSettings& settings) { return Check(settings); });
}

int RunImport(const Options& options)
{
    return WithSettings(options, [&](const LiveSettings& settings) { return Import(options, settings); });
}

int RunBackfill(const Options& options)
{
    return WithSettings(options, [&](const LiveSettings& settings) { return FetchPastDays(options, settings); });
}

} // namespace reportd
