#include "server/live/Backfill.h"

#include "server/live/Wording.h"
#include "server/TimeText.h"
#include "testing/CommandTest.h"
#include "testing/Zip.h"

namespace reportd {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing_support::CCommandTest;
using testing_support::kToday;
using testing_support::Layout;

class Backfill : public CCommandTest {
protected:
    Backfill()
    {
        for (auto& [siteNumber, company] : m_settings.companies) {
            company.isEnabled = siteNumber == catalogue::kTohoku;
        }
    }

    static year_month_day Day(unsigned day) { return year(2026) / 4 / std::chrono::day(day); }

    void ServePast(const std::string& company, Layout layout, unsigned day)
    {
        std::string name = DateText(Day(day));
        std::erase(name, '-');
        Serve("/" + company + "/" + name + ".csv", {.body = ClosedCsv(layout, Day(day))});
    }

    bool Run(unsigned first, unsigned last)
    {
        CBackfill backfill(
            m_settings, m_store, m_fetcher, [] { return local_days(kToday) + hours(13); },
            [this](std::chrono::seconds pause) {
                m_pauses.push_back(pause);
                m_askedBefore.push_back(Asked().size());
                return m_pauses.size() != m_stopAt;
            },
            m_out);
        return backfill.Run(Day(first), Day(last), seconds(5));
    }

    bool HasDay(int siteNumber, unsigned day)
    {
        return m_store.Read(siteNumber, Series::kActualUsage, Day(day), {}).size() == 24U;
    }

    CFigureStore m_store{m_settings.store, CFigureStore::Access::kReadWrite, {}};
    std::vector<std::chrono::seconds> m_pauses;
    std::vector<std::size_t> m_askedBefore; // requests before each pause
    std::size_t m_stopAt = 0;
};

TEST_F(Backfill, FetchesEachDayThatIsMissing)
{
    for (const unsigned day : {16U, 17U, 18U}) {
        ServePast("tohoku", Layout::kTohoku, day);
    }
    EXPECT_TRUE(Run(16, 18)) << m_out.str();
    EXPECT_THAT(Asked(), ElementsAre("/tohoku/20260416.csv", "/tohoku/20260417.csv", "/tohoku/20260418.csv"));
    for (const unsigned day : {16U, 17U, 18U}) {
        EXPECT_TRUE(HasDay(catalogue::kTohoku, day)) << day;
    }
    EXPECT_THAT(m_out.str(), HasSubstr("tohoku 2026-04-16: " + std::to_string(ClosedCount(Layout::kTohoku, Day(16))) +
                                       " figures added\n"));
}

TEST_F(Backfill, PausesBetweenTwoRequestsToACompany)
{
    m_settings.companies[catalogue::kKyushu].isEnabled = true;
    for (const unsigned day : {16U, 17U}) {
        ServePast("tohoku", Layout::kTohoku, day);
        ServePast("kyushu", Layout::kKyushu, day);
    }
    EXPECT_TRUE(Run(16, 17)) << m_out.str();
    EXPECT_THAT(m_pauses, ElementsAre(seconds(5)));
    EXPECT_THAT(m_askedBefore, ElementsAre(2U)); // one of each company
    EXPECT_EQ(Asked().size(), 4U);
}

TEST_F(Backfill, DaysThatTheStoreHasAreNotAskedForAgain)
{
    ServePast("tohoku", Layout::kTohoku, 16);
    ServePast("tohoku", Layout::kTohoku, 17);
    ASSERT_TRUE(Run(16, 16));
    EXPECT_TRUE(Run(16, 17));
    EXPECT_THAT(Asked(), ElementsAre("/tohoku/20260416.csv", "/tohoku/20260417.csv"));
    EXPECT_THAT(m_out.str(), HasSubstr("tohoku 2026-04-16: complete already\n"));
}

TEST_F(Backfill, StopsWhenToldAndGoesOnThereLater)
{
    for (const unsigned day : {16U, 17U, 18U}) {
        ServePast("tohoku", Layout::kTohoku, day);
    }
    m_stopAt = 2;
    EXPECT_FALSE(Run(16, 18));
    EXPECT_THAT(m_out.str(), testing::EndsWith("stopped; the same command goes on from here\n"));
    m_stopAt = 0;
    EXPECT_TRUE(Run(16, 18));
    EXPECT_THAT(Asked(), ElementsAre("/tohoku/20260416.csv", "/tohoku/20260417.csv", "/tohoku/20260418.csv"));
}

TEST_F(Backfill, AnInterruptedRequestStopsItWithoutAFailure)
{
    m_fetcher.Interrupt();
    EXPECT_FALSE(Run(16, 18));
    EXPECT_THAT(m_out.str(), Not(HasSubstr("failed")));
    EXPECT_THAT(m_out.str(), testing::EndsWith("stopped; the same command goes on from here\n"));
}

TEST_F(Backfill, ADayThatFailsIsToldAndTheOthersAreFetched)
{
    ServePast("tohoku", Layout::kTohoku, 16);
    Serve("/tohoku/20260417.csv", {.body = "<html>"});
    ServePast("tohoku", Layout::kTohoku, 19);
    EXPECT_FALSE(Run(16, 19));
    EXPECT_TRUE(HasDay(catalogue::kTohoku, 16));
    EXPECT_TRUE(HasDay(catalogue::kTohoku, 19));
    EXPECT_THAT(m_out.str(), HasSubstr("tohoku 2026-04-17: refused: "));
    EXPECT_THAT(m_out.str(), HasSubstr("tohoku 2026-04-18: failed: its server answered with status 404\n"));
}

TEST_F(Backfill, AFileOfAnotherDayIsRefused)
{
    Serve("/tohoku/20260417.csv", {.body = ClosedCsv(Layout::kTohoku, Day(16))});
    EXPECT_FALSE(Run(17, 17));
    EXPECT_THAT(m_out.str(), HasSubstr("tohoku 2026-04-17: refused: "));
    EXPECT_FALSE(HasDay(catalogue::kTohoku, 16));
}

TEST_F(Backfill, GivesACompanyUpAfterThreeFailuresInARow)
{
    ServePast("tohoku", Layout::kTohoku, 12);
    EXPECT_FALSE(Run(10, 19)); // 10 and 11 fail, 12 is there, 13 to 15 fail
    EXPECT_EQ(Asked().size(), 6U);
    EXPECT_THAT(m_out.str(), HasSubstr("tohoku: given up: three failures in a row\n"));
}

TEST_F(Backfill, RestsAsLongAsTheServerWants)
{
    Serve("/tohoku/20260416.csv", {.status = 429, .headers = {{"Retry-After", "12"}}});
    ServePast("tohoku", Layout::kTohoku, 17);
    EXPECT_FALSE(Run(16, 17));
    EXPECT_TRUE(HasDay(catalogue::kTohoku, 17));
    EXPECT_THAT(m_pauses, ElementsAre(seconds(5), seconds(5), seconds(5))); // 12 seconds and no less
}

TEST_F(Backfill, AServerThatWantsMoreThanAnHourIsLeftAlone)
{
    Serve("/tohoku/20260416.csv", {.status = 503, .headers = {{"Retry-After", "86400"}}});
    ServePast("tohoku", Layout::kTohoku, 17);
    EXPECT_FALSE(Run(16, 17));
    EXPECT_EQ(Asked().size(), 1U);
    EXPECT_THAT(m_pauses, IsEmpty());
}

TEST_F(Backfill, AMonthsArchiveIsFetchedOnceForAllItsDays)
{
    m_settings.companies[catalogue::kTohoku].pastUrl = Url("/tohoku/%Y%m.zip");
    Serve("/tohoku/202604.zip",
          {.body = testing_support::MakeZip({{"202604/20260415_power_usage.csv", ClosedCsv(Layout::kTohoku, Day(15))},
                                             {"202604/20260416_power_usage.csv", ClosedCsv(Layout::kTohoku, Day(16))},
                                             {"202604/20260417_power_usage.csv", ClosedCsv(Layout::kTohoku, Day(17))},
                                             {"202604/20260418_power_usage.csv", "<html>"}})});
    EXPECT_FALSE(Run(16, 19));
    EXPECT_THAT(Asked(), ElementsAre("/tohoku/202604.zip"));
    EXPECT_FALSE(HasDay(catalogue::kTohoku, 15)); // was not asked for
    EXPECT_TRUE(HasDay(catalogue::kTohoku, 16));
    EXPECT_TRUE(HasDay(catalogue::kTohoku, 17));
    EXPECT_THAT(m_out.str(), HasSubstr("tohoku 2026-04-18: refused: "));
    EXPECT_THAT(m_out.str(), HasSubstr("tohoku 2026-04-19: failed: not in the archive, or refused\n"));
}

TEST_F(Backfill, ADamagedArchiveIsAFailureOfItsMonth)
{
    m_settings.companies[catalogue::kTohoku].pastUrl = Url("/tohoku/%Y%m.zip");
    Serve("/tohoku/202604.zip", {.body = "PK\x03\x04"});
    EXPECT_FALSE(Run(16, 19));
    EXPECT_THAT(Asked(), ElementsAre("/tohoku/202604.zip")); // not once for each day
    EXPECT_THAT(m_out.str(), HasSubstr("the archive is not readable: "));
}

TEST_F(Backfill, CompaniesThatCannotBeAskedAreLeftOut)
{
    m_settings.companies[catalogue::kTohoku].pastUrl = "";
    EXPECT_TRUE(Run(16, 19));
    EXPECT_THAT(Asked(), IsEmpty());
    EXPECT_THAT(m_out.str(), HasSubstr("tohoku: left out: has no past_url\n"));
    EXPECT_THAT(m_out.str(), HasSubstr("kyushu: left out: is not enabled\n"));
}

} // namespace
} // namespace reportd
