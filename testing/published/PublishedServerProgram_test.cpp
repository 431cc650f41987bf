// The program published_server itself.
#include "server/JapanTime.h"
#include "server/live/LiveSettings.h"
#include "server/retrieval/Fetcher.h"
#include "server/retrieval/UrlPattern.h"
#include "testing/NoProxy.h"
#include "testing/process/Process.h"
#include "testing/ScratchFolder.h"

#include <csignal>
#include <gmock/gmock.h>

namespace testing_support {
namespace {

using reportd::CompanySettings;
using reportd::FetchAnswer;
using reportd::LiveSettings;
using reportd::ReadJapanClock;
using testing::StartsWith;

constexpr std::chrono::seconds kLimit{30};

class PublishedServerProgram : public testing::Test {
protected:
    // Starts it and reads the settings that it writes.
    LiveSettings Start(const std::vector<std::string>& further, const std::string& origin)
    {
        UseNoProxy();
        std::vector<std::string> command = {AMPORA_PUBLISHED_SERVER, "--folder", m_folder.Path().string()};
        command.insert(command.end(), further.begin(), further.end());
        m_program = std::make_unique<CBackgroundProcess>(command, EnvironmentChanges());
        EXPECT_THAT(m_program->ReadLine(kLimit).value_or(m_program->Err()),
                    StartsWith("published_server: serving on " + origin));
        return reportd::LoadLiveSettings(m_folder.Path() / "ampora-reportd.toml");
    }

    // Fetches a company's file of today as the report server does.
    FetchAnswer Fetch(const LiveSettings& settings, const CompanySettings& company)
    {
        const std::chrono::year_month_day today{std::chrono::floor<std::chrono::days>(ReadJapanClock())};
        return m_fetcher.Fetch({.url = reportd::UrlOfDay(company.todayUrl, today),
                                .agent = company.agent,
                                .authorityFile = settings.authorityFile});
    }

    void ExpectFilesOfToday(const LiveSettings& settings)
    {
        for (const auto& [siteNumber, company] : settings.companies) {
            const FetchAnswer answer = Fetch(settings, company);
            ASSERT_EQ(answer.status, 200) << siteNumber << answer.detail;
            const reportd::PublishedFile file = reportd::ParsePublishedFile(answer.body, company.extraHeadings);
            const auto now = ReadJapanClock();
            EXPECT_NO_THROW(
                reportd::CheckTimeliness(file, std::chrono::year_month_day{std::chrono::floor<std::chrono::days>(now)},
                                         now, company.FrozenAfter()));
        }
    }

    const CScratchFolder m_folder;
    std::unique_ptr<CBackgroundProcess> m_program;
    reportd::CFetcher m_fetcher;
};

TEST_F(PublishedServerProgram, ServesTodaysFilesOfAllCompanies)
{
    const LiveSettings settings = Start({}, "http://127.0.0.1:");
    EXPECT_EQ(settings.companies.size(), 5U);
    ExpectFilesOfToday(settings);
    m_program->Signal(SIGTERM);
    EXPECT_EQ(m_program->WaitForExit(kLimit), 0);
}

TEST_F(PublishedServerProgram, ServesOverTlsToThoseWhoTrustItsAuthority)
{
    LiveSettings settings = Start({"--tls"}, "https://127.0.0.1:");
    ExpectFilesOfToday(settings);
    settings.authorityFile.clear();
    EXPECT_EQ(Fetch(settings, settings.companies.at(catalogue::kTokyo)).failure, "tls");
}

TEST_F(PublishedServerProgram, EndsWith2OnWhatItDoesNotUnderstand)
{
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{}, {"--folder"}, {"--folder", "x", "--colour"}}) {
        std::vector<std::string> command = {AMPORA_PUBLISHED_SERVER};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const ProcessResult result = RunProcess(command, {}, kLimit);
        EXPECT_EQ(result.exitCode, 2);
        EXPECT_THAT(result.err, StartsWith("published_server: "));
    }
}

} // namespace
} // namespace testing_support
