#include "server/live/Check.h"

#include "server/live/Wording.h"
#include "testing/CommandTest.h"

namespace reportd {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing_support::CCommandTest;
using testing_support::kToday;
using testing_support::Layout;
using testing_support::PublishedCsv;

class Check : public CCommandTest {
protected:
    bool RunAt(LocalTime now) { return CheckCompanies(m_settings, m_fetcher, now, m_out); }

    // The cells of the first line that begins with this word.
    std::vector<std::string> Row(const std::string& first) const
    {
        std::istringstream lines(m_out.str());
        for (std::string line; std::getline(lines, line);) {
            std::vector<std::string> cells = {""};
            for (std::size_t i = 0; i < line.size(); ++i) {
                if (line.substr(i, 2) != "  ") {
                    cells.back() += line[i];
                } else {
                    i = line.find_first_not_of(' ', i) - 1;
                    cells.emplace_back();
                }
            }
            if (cells.front() == first) {
                return cells;
            }
        }
        return {};
    }

    const LocalTime m_now = local_days(kToday) + hours(13) + minutes(7);
};

// The last figure of a series in what a file holds.
std::string CellOf(Layout layout, LocalTime published, Series series)
{
    std::string cell = "-";
    for (const Figure& figure : testing_support::TrueFigures(layout, kToday, published)) {
        if (figure.series == series) {
            cell = std::to_string(figure.record.value) + " MW " + TimeOfDayText(figure.record.start);
        }
    }
    return cell;
}

TEST_F(Check, ShowsWhatAllCompaniesPublish)
{
    ServeToday(m_now);
    EXPECT_TRUE(RunAt(m_now)) << m_out.str();
    EXPECT_THAT(Row("tokyo"), testing::ElementsAre("tokyo", "yes", "yes", "2026-04-20 13:07", "0"));
    std::vector<std::string> instant = {"instant_usage"};
    std::vector<std::string> actual = {"actual_usage"};
    for (const auto& [key, layout] : kLayouts) {
        instant.push_back(CellOf(layout, m_now, Series::kInstantUsage));
        actual.push_back(CellOf(layout, m_now, Series::kActualUsage));
    }
    EXPECT_EQ(Row("instant_usage"), instant);
    EXPECT_EQ(Row("actual_usage"), actual);
    EXPECT_THAT(Row("estimated_usage").at(1), testing::EndsWith(" MW 13:00")); // of the hour that it is
    EXPECT_THAT(Row("peak_demand").at(1), HasSubstr(" MW "));
    EXPECT_THAT(m_out.str(), Not(HasSubstr("problem")));
    EXPECT_EQ(Asked().size(), 5U);
}

TEST_F(Check, AsksForTheDayInJapanWithTheAgentOfTheSettings)
{
    m_settings.companies[catalogue::kTohoku].todayUrl = Url("/tohoku/%Y-%m-%d.csv");
    m_settings.companies[catalogue::kTohoku].agent = "tester/1";
    RunAt(m_now);
    const auto exchanges = m_server.Exchanges();
    ASSERT_EQ(exchanges.size(), 5U);
    EXPECT_EQ(exchanges[1].target, "/tohoku/2026-04-20.csv");
    EXPECT_EQ(exchanges[1].agent, "tester/1");
}

TEST_F(Check, TellsWhatIsWrongWithOneAndGoesOnWithTheOthers)
{
    ServeToday(m_now);
    Serve("/tohoku/today.csv", {.status = 403});
    Serve("/chubu/today.csv", {.body = "<html><body>moved</body></html>"});
    Serve("/kansai/today.csv", {.fault = testing_support::HttpFault::kClosedEarly});
    EXPECT_FALSE(RunAt(m_now));
    EXPECT_EQ(Row("tokyo").at(2), "yes");
    EXPECT_EQ(Row("kyushu").at(2), "yes");
    EXPECT_EQ(Row("tohoku").at(1), "status 403");
    EXPECT_EQ(Row("chubu").at(2), "no");
    EXPECT_THAT(Row("kansai").at(1), Not("yes"));
    EXPECT_THAT(m_out.str(), HasSubstr("tohoku: problem: " + Url("/tohoku/today.csv") + ": "));
    EXPECT_THAT(m_out.str(), HasSubstr("another agent in the settings may help"));
    EXPECT_THAT(m_out.str(), HasSubstr("set today_url"));
    EXPECT_THAT(m_out.str(), HasSubstr("kansai: problem: "));
    EXPECT_EQ(Row("instant_usage").at(2), "-");
}

TEST_F(Check, AFrozenFileIsAProblemAlthoughItIsUnderstood)
{
    ServeToday(m_now);
    Serve("/kansai/today.csv", {.body = PublishedCsv(Layout::kKansai, kToday, local_days(kToday) + hours(3))});
    EXPECT_FALSE(RunAt(m_now));
    EXPECT_EQ(Row("kansai").at(2), "yes");
    EXPECT_EQ(Row("kansai").at(3), "2026-04-20 03:00");
    EXPECT_THAT(m_out.str(), HasSubstr("kansai: problem: "));
}

TEST_F(Check, AFileThatIsNotThereYetIsNoProblemSoonAfterMidnight)
{
    for (auto& [siteNumber, company] : m_settings.companies) {
        company.isEnabled = siteNumber == catalogue::kKyushu;
        company.todayUrl = Url("/kyushu/%Y%m%d.csv");
    }
    const LocalTime early = local_days(kToday) + minutes(30);
    EXPECT_TRUE(RunAt(early)) << m_out.str();
    EXPECT_EQ(Row("kyushu").at(1), "not yet");
    EXPECT_THAT(m_out.str(), HasSubstr("kyushu: note: "));
    m_out.str("");
    EXPECT_FALSE(RunAt(early + hours(2)));
}

TEST_F(Check, AnAddressWithoutADayMayHaveYesterdaysFileSoonAfterMidnight)
{
    for (auto& [siteNumber, company] : m_settings.companies) {
        company.isEnabled = siteNumber == catalogue::kTokyo;
    }
    const LocalTime midnight = local_days(kToday);
    const auto yesterday = std::chrono::year_month_day{local_days(kToday) - std::chrono::days(1)};
    Serve("/tokyo/today.csv", {.body = PublishedCsv(Layout::kTokyoD1, yesterday, midnight + minutes(5))});
    EXPECT_TRUE(RunAt(midnight + minutes(30))) << m_out.str();
    EXPECT_THAT(m_out.str(), HasSubstr("tokyo: note: the file is still yesterday's"));
    EXPECT_FALSE(RunAt(midnight + hours(2)));
    Serve("/tokyo/today.csv", {.status = 404});
    EXPECT_FALSE(RunAt(midnight + minutes(30)));
}

TEST_F(Check, TellsHeadingsThatMeanNothing)
{
    ServeToday(m_now);
    Serve("/tokyo/today.csv",
          {.body = PublishedCsv(Layout::kTokyoD1, kToday, m_now, {.damage = testing_support::Damage::kNewColumn})});
    EXPECT_TRUE(RunAt(m_now)) << m_out.str();
    EXPECT_EQ(Row("tokyo").at(4), "1");
    EXPECT_THAT(m_out.str(), HasSubstr("tokyo: note: headings that mean nothing to this version: "));
}

TEST_F(Check, LeavesOutWhatIsNotEnabled)
{
    ServeToday(m_now);
    m_settings.companies[catalogue::kTokyo].isEnabled = false;
    EXPECT_TRUE(RunAt(m_now));
    EXPECT_EQ(Row("tokyo").at(1), "not enabled");
    EXPECT_EQ(Asked().size(), 4U);
}

} // namespace
} // namespace reportd
