#include "server/Options.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

using std::chrono::year;

TEST(ReportdOptions, WithoutArgumentsItServesAsTheSettingsSay)
{
    const Options options = ParseOptions({});
    EXPECT_EQ(options.verb, Verb::kServe);
    EXPECT_EQ(options.source, std::nullopt);
    EXPECT_EQ(options.config, std::nullopt);
    EXPECT_EQ(options.listen, std::nullopt);
    EXPECT_EQ(options.port, std::nullopt);
    EXPECT_FALSE(options.help);
    EXPECT_FALSE(options.version);
}

TEST(ReportdOptions, DefaultsAreLoopbackAndThePortThatClientsAsk)
{
    EXPECT_STREQ(kDefaultListen, "127.0.0.1");
    EXPECT_EQ(kDefaultPort, 8470);
}

TEST(ReportdOptions, TakesAddressAndPort)
{
    const Options options = ParseOptions({"--listen", "::1", "--port", "0"});
    EXPECT_EQ(options.listen, "::1");
    EXPECT_EQ(options.port, 0);
    EXPECT_EQ(ParseOptions({"--port", "65535"}).port, 65535);
}

TEST(ReportdOptions, TakesSourceAndSettings)
{
    EXPECT_EQ(ParseOptions({"--source", "sample"}).source, SourceKind::kSample);
    const Options options = ParseOptions({"--source", "live", "--config", "mine.toml"});
    EXPECT_EQ(options.source, SourceKind::kLive);
    EXPECT_EQ(options.config, "mine.toml");
}

TEST(ReportdOptions, TakesCheck)
{
    const Options options = ParseOptions({"check", "--config", "mine.toml"});
    EXPECT_EQ(options.verb, Verb::kCheck);
    EXPECT_EQ(options.config, "mine.toml");
}

TEST(ReportdOptions, TakesImportWithItsFiles)
{
    const Options options = ParseOptions({"import", "a.csv", "--company", "tokyo", "b.zip"});
    EXPECT_EQ(options.verb, Verb::kImport);
    EXPECT_EQ(options.company, "tokyo");
    EXPECT_EQ(options.files, (std::vector<std::string>{"a.csv", "b.zip"}));
}

TEST(ReportdOptions, TakesBackfillWithItsDays)
{
    const Options options = ParseOptions({"backfill", "--from", "2026-04-20"});
    EXPECT_EQ(options.verb, Verb::kBackfill);
    EXPECT_EQ(options.firstDay, year(2026) / 4 / 20);
    EXPECT_EQ(options.lastDay, std::nullopt);
    EXPECT_EQ(options.pause, std::chrono::seconds(5));
    const Options bounded = ParseOptions({"backfill", "--from", "2026-04-20", "--to", "2026-04-20", "--pause", "3600"});
    EXPECT_EQ(bounded.lastDay, year(2026) / 4 / 20);
    EXPECT_EQ(bounded.pause, std::chrono::hours(1));
}

TEST(ReportdOptions, HelpNeedsNothingElse)
{
    EXPECT_TRUE(ParseOptions({"import", "--help"}).help);
    EXPECT_TRUE(ParseOptions({"backfill", "--help"}).help);
}

TEST(ReportdOptions, TakesHelpAndVersion)
{
    EXPECT_TRUE(ParseOptions({"--help"}).help);
    EXPECT_TRUE(ParseOptions({"--version"}).version);
}

void ExpectRefused(const std::vector<std::vector<std::string>>& commandLines)
{
    for (const std::vector<std::string>& arguments : commandLines) {
        EXPECT_THROW(ParseOptions(arguments), COptionsError) << testing::PrintToString(arguments);
    }
}

TEST(ReportdOptions, RefusesWhatItDoesNotKnow)
{
    ExpectRefused({{"--listne"}, {"8470"}, {""}, {"serve"}, {"import", ""}, {"import", "a.csv", "--files"}});
}

TEST(ReportdOptions, RefusesAMissingValue)
{
    ExpectRefused({{"--listen"}, {"--port"}, {"--source"}, {"--config"}, {"import", "a.csv", "--company"}});
}

TEST(ReportdOptions, RefusesNumbersOutOfRange)
{
    ExpectRefused({{"--port", ""},
                   {"--port", "65536"},
                   {"--port", "-1"},
                   {"--port", "80x"},
                   {"--port", "x"},
                   {"backfill", "--from", "2026-04-20", "--pause", "4"},
                   {"backfill", "--from", "2026-04-20", "--pause", "3601"}});
}

TEST(ReportdOptions, RefusesWhatIsNoDay)
{
    for (const std::string day : {"2026-02-29", "2026-4-20", "20260420", "2026-04-2x", "2026/04/20", "", "2026-13-01",
                                  "-026-04-20", "2026-04-20 "}) {
        ExpectRefused({{"backfill", "--from", day}, {"backfill", "--from", "2026-01-01", "--to", day}});
    }
}

TEST(ReportdOptions, RefusesAnIncompleteCommand)
{
    ExpectRefused({{"import"},
                   {"import", "--company", "tokyo"},
                   {"backfill"},
                   {"backfill", "--to", "2026-04-20"},
                   {"backfill", "--from", "2026-04-20", "--to", "2026-04-19"}});
}

TEST(ReportdOptions, RefusesOptionsOfAnotherCommand)
{
    ExpectRefused({{"check", "--port", "0"},
                   {"check", "--source", "live"},
                   {"import", "a.csv", "--from", "2026-04-20"},
                   {"--company", "tokyo"},
                   {"check", "a.csv"},
                   {"--config", "mine.toml", "check"}});
}

} // namespace
} // namespace reportd
