// The program ampora-reportd with live data, as its user runs it.
#include "server/JapanTime.h"
#include "server/live/Archive.h"
#include "server/retrieval/Fetcher.h"
#include "server/store/FigureStore.h"
#include "server/TimeText.h"
#include "testing/NoProxy.h"
#include "testing/process/Process.h"
#include "testing/published/PublishedServer.h"
#include "testing/RawClient.h"
#include "testing/ScratchFolder.h"
#include "testing/TlsFront.h"
#include "testing/Zip.h"

#include <gmock/gmock.h>

#include <csignal>

namespace reportd {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;
using testing_support::CBackgroundProcess;
using testing_support::CRawClient;
using testing_support::EnvironmentChanges;
using testing_support::Layout;
using testing_support::ProcessResult;
using testing_support::WireFault;

constexpr std::chrono::seconds kLimit{30};

year_month_day DayBefore(int count) { return year_month_day{std::chrono::floor<days>(ReadJapanClock()) - days(count)}; }

class LiveProgram : public testing::Test {
protected:
    LiveProgram()
    {
        testing_support::UseNoProxy();
        m_companies.SetNewDay(minutes(0)); // files of today at every time of the day
        Configure("");
    }

    // Settings that point to the companies' server; further: text before the tables of the companies.
    void Configure(const std::string& further, const std::string& origin = {}, const std::string& authority = {})
    {
        m_settings = m_folder.Write("settings.toml", "store = \"" + m_store.string() + "\"\n" + further +
                                                         m_companies.Settings(origin, authority));
    }

    void SetFaultOfAll(WireFault fault)
    {
        for (const catalogue::Company& company : catalogue::kCompanies) {
            m_companies.SetFault(company.siteNumber, fault);
        }
    }

    std::vector<std::string> Command(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), AMPORA_REPORTD);
        arguments.insert(arguments.end(), {"--config", m_settings.string()});
        return arguments;
    }
    ProcessResult Run(const std::vector<std::string>& arguments) const
    {
        return testing_support::RunProcess(Command(arguments), EnvironmentChanges(), kLimit);
    }

    // Starts the server on a free port and waits for its ready line.
    void Start()
    {
        m_program = std::make_unique<CBackgroundProcess>(Command({"--port", "0"}), EnvironmentChanges());
        const std::string ready = m_program->ReadLine(kLimit).value_or(m_program->Err());
        const std::string start = "ampora-reportd: serving live data on http://127.0.0.1:";
        ASSERT_THAT(ready, StartsWith(start));
        m_port = static_cast<WORD>(std::stoul(ready.substr(start.size())));
    }
    void Stop(int signal)
    {
        m_program->Signal(signal);
        EXPECT_EQ(m_program->WaitForExit(kLimit), 0) << m_program->Err();
    }

    FetchAnswer Get(const std::string& target)
    {
        return m_fetcher.Fetch({.url = "http://127.0.0.1:" + std::to_string(m_port) + target, .agent = "tester"});
    }
    // Asks for the estimates of a company's day of today until there are some: right after midnight of another day.
    FetchAnswer AwaitEstimates(const std::string& company)
    {
        FetchAnswer answer;
        testing_support::WaitUntil(
            [&] {
                answer = Get("/usage/" + company + "/estimated?date=" + DateText(DayBefore(0)) + "&output=xml");
                return answer.status == 200;
            },
            kLimit);
        return answer;
    }

    // How many hours of actual usage the store has.
    std::size_t HoursOf(int siteNumber, year_month_day date) const
    {
        CFigureStore store(m_store, CFigureStore::Access::kReadOnly, {});
        return store.Read(siteNumber, Series::kActualUsage, date, {}).size();
    }
    static std::string ClosedCsv(Layout layout, year_month_day date)
    {
        return testing_support::PublishedCsv(layout, date, local_days(date) + days(1) + minutes(90));
    }

    const testing_support::CScratchFolder m_folder;
    const std::filesystem::path m_store = m_folder.Path() / "state" / "figures.sqlite";
    std::filesystem::path m_settings;
    testing_support::CPublishedServer m_companies{ReadJapanClock};
    CFetcher m_fetcher;
    std::unique_ptr<CBackgroundProcess> m_program;
    WORD m_port = 0;
};

// --- Serving --------------------------------------------------------------------------------------------------------

TEST_F(LiveProgram, ServesWhatTheCompaniesPublish)
{
    Start();
    for (const char* const company : {"tokyo", "tohoku", "chubu", "kansai", "kyushu"}) {
        const FetchAnswer answer = AwaitEstimates(company);
        EXPECT_EQ(answer.status, 200) << company << ": " << m_program->Err();
        EXPECT_THAT(answer.body, HasSubstr("<estimated_usage>")) << company;
    }
    CRawClient client(m_port);
    client.Ask("/healthz");
    EXPECT_THAT(client.ReadTo("\r\n\r\n"), AllOf(StartsWith("HTTP/1.1 200 "), HasSubstr("X-Ampora-Source: live")));
    EXPECT_EQ(Get("/readyz").status, 200);
    // A poll is counted after its figures have been stored.
    const std::string metric = "ampora_last_success_timestamp_seconds{company=\"kyushu\"}";
    EXPECT_TRUE(
        testing_support::WaitUntil([&] { return Get("/metrics").body.find(metric) != std::string::npos; }, kLimit));
    Stop(SIGTERM);
}

TEST_F(LiveProgram, ServesOverHttpsFromCompaniesWithItsOwnAuthority)
{
    const testing_support::CTlsFront front(m_companies.Port(), m_folder.Path());
    Configure("", "https://127.0.0.1:" + std::to_string(front.Port()), front.AuthorityFile().string());
    Start();
    EXPECT_EQ(AwaitEstimates("tokyo").status, 200) << m_program->Err();
    Stop(SIGINT);
}

TEST_F(LiveProgram, TheStartDoesNotWaitForAFetchNorDoesTheEnd)
{
    SetFaultOfAll(WireFault::kStalled);
    Start();
    EXPECT_TRUE(testing_support::WaitUntil([this] { return !m_companies.Exchanges().empty(); }, kLimit));
    EXPECT_EQ(Get("/healthz").status, 200);
    const auto start = std::chrono::steady_clock::now();
    Stop(SIGTERM);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)); // a fetch may take 30
}

TEST_F(LiveProgram, AfterARestartTheFiguresAreThereAlthoughNoCompanyIs)
{
    Start();
    ASSERT_EQ(AwaitEstimates("kansai").status, 200) << m_program->Err();
    m_program->Kill();
    SetFaultOfAll(WireFault::kDown);
    Start();
    EXPECT_EQ(AwaitEstimates("kansai").status, 200);
    Stop(SIGTERM);
}

TEST_F(LiveProgram, SaysOnStandardErrorWhatFails)
{
    m_companies.SetFault(catalogue::kTohoku, WireFault::kForbidden);
    Start();
    EXPECT_TRUE(testing_support::WaitUntil(
        [this] { return m_program->Err().find("tohoku: poll failed (http_forbidden)") != std::string::npos; }, kLimit))
        << m_program->Err();
    Stop(SIGTERM);
    EXPECT_THAT(m_program->Err(), HasSubstr("polling tokyo, tohoku, chubu, kansai, kyushu\n"));
}

TEST_F(LiveProgram, TheCommandLineCountsMoreThanTheSettings)
{
    Configure("listen = \"192.0.2.1\"\nport = 1\n"); // reserved for documentation
    m_program =
        std::make_unique<CBackgroundProcess>(Command({"--listen", "127.0.0.1", "--port", "0"}), EnvironmentChanges());
    EXPECT_THAT(m_program->ReadLine(kLimit).value_or(m_program->Err()), HasSubstr("live data on http://127.0.0.1:"));
    EXPECT_EQ(Run({}).exitCode, 1);
}

TEST_F(LiveProgram, AStoreThatCannotBeOpenedEndsItWith1)
{
    m_folder.Write("state", "a file where the folder should be");
    const ProcessResult result = Run({"--port", "0"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, AllOf(StartsWith("ampora-reportd: "), HasSubstr(m_store.parent_path().string())));
    EXPECT_EQ(testing_support::FileBytes(m_folder.Path() / "state"), "a file where the folder should be");
}

TEST_F(LiveProgram, SettingsThatAreNotUnderstoodEndItWith2)
{
    Configure("prot = 1\n");
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {"--port", "0"}, {"check"}, {"import", "x.csv"}, {"backfill", "--from", "2026-04-20"}}) {
        const ProcessResult result = Run(arguments);
        EXPECT_EQ(result.exitCode, 2) << arguments.front();
        EXPECT_EQ(result.out, "") << arguments.front();
        EXPECT_THAT(result.err, StartsWith("ampora-reportd: " + m_settings.string() + ":2: prot: "));
    }
    std::filesystem::remove(m_settings);
    EXPECT_EQ(Run({"check"}).exitCode, 2);
}

// --- Commands -------------------------------------------------------------------------------------------------------

TEST_F(LiveProgram, CheckPrintsATableAndStoresNothing)
{
    const ProcessResult result = Run({"check"});
    EXPECT_EQ(result.exitCode, 0) << result.out << result.err;
    EXPECT_THAT(result.out, StartsWith("company  answers  understood  published "));
    EXPECT_THAT(result.out, HasSubstr("\nkyushu   yes      yes         "));
    EXPECT_FALSE(std::filesystem::exists(m_store));
    EXPECT_EQ(m_companies.Exchanges().size(), 5U);
}

TEST_F(LiveProgram, CheckEndsWith1WhenACompanyCannotBeHad)
{
    m_companies.SetFault(catalogue::kChubu, WireFault::kServerError);
    const ProcessResult result = Run({"check"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.out, HasSubstr("\nchubu: problem: http://127.0.0.1:"));
}

TEST_F(LiveProgram, CheckTrustsNoAuthorityThatItWasNotTold)
{
    const testing_support::CTlsFront front(m_companies.Port(), m_folder.Path());
    Configure("", "https://127.0.0.1:" + std::to_string(front.Port()));
    const ProcessResult result = Run({"check"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.out, HasSubstr("the certificate of its server is not trusted"));
    EXPECT_TRUE(m_companies.Exchanges().empty());
}

TEST_F(LiveProgram, CheckCanBeInterrupted)
{
    SetFaultOfAll(WireFault::kStalled);
    m_program = std::make_unique<CBackgroundProcess>(Command({"check"}), EnvironmentChanges());
    ASSERT_TRUE(testing_support::WaitUntil([this] { return !m_companies.Exchanges().empty(); }, kLimit));
    m_program->Signal(SIGINT);
    EXPECT_EQ(m_program->WaitForExit(std::chrono::seconds(10)), 1);
}

TEST_F(LiveProgram, ImportTakesFilesAndArchives)
{
    const std::string archive = testing_support::MakeZip(
        {{"20260417_power_usage.csv", ClosedCsv(Layout::kTokyoD1, std::chrono::year(2026) / 4 / 17)}});
    const std::string zip = m_folder.Write("202604_power_usage.zip", archive).string();
    const ProcessResult result = Run({"import", "--company", "tokyo", zip});
    EXPECT_EQ(result.exitCode, 0) << result.out << result.err;
    EXPECT_THAT(result.out, HasSubstr(": tokyo 2026-04-17: "));
    EXPECT_EQ(HoursOf(catalogue::kTokyo, std::chrono::year(2026) / 4 / 17), 24U);
}

TEST_F(LiveProgram, ImportGoesOnAfterARefusedFileAndEndsWith1)
{
    const year_month_day date = std::chrono::year(2026) / 4 / 17;
    const std::string bad = m_folder.Write("juyo_02_20260416.csv", "text").string();
    const std::string good = m_folder.Write("juyo_02_20260417.csv", ClosedCsv(Layout::kTohoku, date)).string();
    const ProcessResult result = Run({"import", bad, good});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.out, AllOf(StartsWith("juyo_02_20260416.csv: refused: "), HasSubstr("tohoku 2026-04-17: ")));
    EXPECT_EQ(HoursOf(catalogue::kTohoku, date), 24U);
}

TEST_F(LiveProgram, ImportRefusesCompaniesThatThereAreNot)
{
    const ProcessResult result = Run({"import", "--company", "osaka", "x.csv"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.err, StartsWith("ampora-reportd: --company needs one of tokyo, "));
}

TEST_F(LiveProgram, ARunningServerServesWhatIsImported)
{
    SetFaultOfAll(WireFault::kDown);
    Start();
    const std::string target = "/usage/tohoku/actual?date=2026-04-17&output=xml";
    EXPECT_EQ(Get(target).status, 503);
    const std::string file =
        m_folder.Write("juyo_02_20260417.csv", ClosedCsv(Layout::kTohoku, std::chrono::year(2026) / 4 / 17)).string();
    ASSERT_EQ(Run({"import", file}).exitCode, 0);
    EXPECT_TRUE(testing_support::WaitUntil([&] { return Get(target).status == 200; }, std::chrono::seconds(3)));
    Stop(SIGTERM);
}

TEST_F(LiveProgram, BackfillFetchesPastDays)
{
    const year_month_day date = DayBefore(2);
    const ProcessResult result = Run({"backfill", "--from", DateText(date), "--to", DateText(date)});
    EXPECT_EQ(result.exitCode, 0) << result.out << result.err;
    for (const int company : {catalogue::kTohoku, catalogue::kKansai, catalogue::kKyushu}) {
        EXPECT_EQ(HoursOf(company, date), 24U) << company;
    }
    EXPECT_THAT(result.out, HasSubstr("tokyo: left out: has no past_url\n"));
}

TEST_F(LiveProgram, BackfillFetchesPastDaysOnly)
{
    for (const int before : {0, -1}) {
        const ProcessResult result = Run({"backfill", "--from", DateText(DayBefore(before))});
        EXPECT_EQ(result.exitCode, 2);
        EXPECT_THAT(result.err, StartsWith("ampora-reportd: backfill fetches days before today"));
    }
    EXPECT_TRUE(m_companies.Exchanges().empty());
}

TEST_F(LiveProgram, BackfillCanBeInterruptedInAPause)
{
    m_program = std::make_unique<CBackgroundProcess>(
        Command({"backfill", "--from", DateText(DayBefore(4)), "--pause", "3600"}), EnvironmentChanges());
    ASSERT_TRUE(testing_support::WaitUntil(
        [this] { return m_program->Out().find("kyushu " + DateText(DayBefore(4))) != std::string::npos; }, kLimit));
    m_program->Signal(SIGINT);
    EXPECT_EQ(m_program->WaitForExit(std::chrono::seconds(10)), 1);
    EXPECT_THAT(m_program->Out(), testing::EndsWith("stopped; the same command goes on from here\n"));
    EXPECT_EQ(HoursOf(catalogue::kKyushu, DayBefore(4)), 24U);
}

TEST_F(LiveProgram, BackfillCanBeInterruptedInAFetch)
{
    SetFaultOfAll(WireFault::kStalled);
    m_program = std::make_unique<CBackgroundProcess>(Command({"backfill", "--from", DateText(DayBefore(4))}),
                                                     EnvironmentChanges());
    ASSERT_TRUE(testing_support::WaitUntil([this] { return !m_companies.Exchanges().empty(); }, kLimit));
    m_program->Signal(SIGINT);
    EXPECT_EQ(m_program->WaitForExit(std::chrono::seconds(10)), 1);
    EXPECT_THAT(m_program->Out(), testing::EndsWith("stopped; the same command goes on from here\n"));
}

// --- make live ------------------------------------------------------------------------------------------------------

// The script, with the programs of this build, until Ctrl-C.
class LiveScript : public LiveProgram {
protected:
    // Starts it and waits for its last line.
    void StartScript()
    {
        m_program = std::make_unique<CBackgroundProcess>(
            std::vector<std::string>{AMPORA_SOURCE_DIR "/scripts/live.sh", (m_folder.Path() / "live").string(),
                                     AMPORA_PROGRAMS},
            EnvironmentChanges{{"AMPORA_LIVE_CONFIG", m_settings.string()}});
        std::optional<std::string> line;
        do {
            line = m_program->ReadLine(std::chrono::seconds(100));
        } while (line && *line != "Ctrl-C ends all of it.");
        ASSERT_TRUE(line) << m_program->Out() << m_program->Err();
        const std::string page = "The page of today:     http://127.0.0.1:";
        const std::string out = m_program->Out();
        ASSERT_THAT(out, HasSubstr(page));
        m_port = static_cast<WORD>(std::stoul(out.substr(out.find(page) + page.size())));
    }

    // Ends it as Ctrl-C does and expects that nothing is left of it.
    void ExpectItsEnd()
    {
        EXPECT_EQ(Get("/healthz").status, 200);
        Stop(SIGINT);
        EXPECT_EQ(Get("/healthz").failure, "connect");
        EXPECT_EQ(m_program->Err(), "");
    }
};

TEST_F(LiveScript, ShowsTheCheckThePageAndTheDataFiles)
{
    StartScript();
    EXPECT_THAT(m_program->Out(), AllOf(HasSubstr("\nkyushu   yes      yes         "), HasSubstr(" requests: "),
                                        HasSubstr("COMPANY "), HasSubstr("\nKansai   estimated usage ")));
    EXPECT_THAT(Get("/").body, HasSubstr("<html"));
    ExpectItsEnd();
}

TEST_F(LiveScript, SaysForEachCompanyWhatFailedAndGoesOn)
{
    SetFaultOfAll(WireFault::kForbidden);
    StartScript();
    for (const char* const company : {"tokyo", "tohoku", "chubu", "kansai", "kyushu"}) {
        EXPECT_THAT(m_program->Out(), HasSubstr("\n" + std::string(company) + ": problem: "));
    }
    EXPECT_THAT(m_program->Out(), HasSubstr("42 requests: 0 answered with a report, 42 with status 503"));
    ExpectItsEnd();
}

} // namespace
} // namespace reportd
