#include "server/live/Import.h"

#include "server/live/Archive.h"
#include "testing/CommandTest.h"
#include "testing/Zip.h"

namespace reportd {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing_support::CCommandTest;
using testing_support::kToday;
using testing_support::Layout;
using testing_support::PublishedCsv;

constexpr year_month_day kDay = year(2026) / 4 / 18;

class Import : public CCommandTest {
protected:
    Import() { m_settings.companies = DefaultLiveSettings().companies; }

    // Imports a file of these bytes.
    bool Take(const std::string& name, const std::string& bytes, std::optional<int> siteNumber = {})
    {
        return m_import.ImportFile(m_scratch.Write(name, bytes), siteNumber);
    }

    std::size_t CountOf(int siteNumber, year_month_day date, Series series = Series::kInstantUsage)
    {
        return m_store.Read(siteNumber, series, date, {}).size();
    }

    LocalTime m_now = local_days(kToday) + hours(13);
    CFigureStore m_store{m_settings.store, CFigureStore::Access::kReadWrite, {}};
    CImport m_import{m_settings, m_store, [this] { return m_now; }, m_out};
};

TEST_F(Import, TakesAFileWhoseNameTellsTheCompany)
{
    EXPECT_TRUE(Take("juyo_02_20260418.csv", ClosedCsv(Layout::kTohoku, kDay)));
    EXPECT_EQ(m_out.str(), "juyo_02_20260418.csv: tohoku 2026-04-18: " +
                               std::to_string(ClosedCount(Layout::kTohoku, kDay)) + " figures added\n");
    EXPECT_EQ(CountOf(catalogue::kTohoku, kDay), 288U);
    EXPECT_EQ(m_store.State(catalogue::kTohoku, kDay).observed, m_now);
}

TEST_F(Import, ASecondTimeNothingIsNew)
{
    ASSERT_TRUE(Take("juyo_02_20260418.csv", ClosedCsv(Layout::kTohoku, kDay)));
    m_out.str("");
    EXPECT_TRUE(Take("juyo_02_20260418.csv", ClosedCsv(Layout::kTohoku, kDay)));
    EXPECT_EQ(m_out.str(), "juyo_02_20260418.csv: tohoku 2026-04-18: 0 figures added\n");
}

TEST_F(Import, TakesCompressedFilesByWhatTheyAre)
{
    EXPECT_TRUE(Take("juyo_02_20260418.csv.gz", MakeGzip(ClosedCsv(Layout::kTohoku, kDay))));
    EXPECT_TRUE(Take("day-20260418.csv", MakeGzip(ClosedCsv(Layout::kTokyoD1, kDay)), catalogue::kTokyo));
    EXPECT_EQ(CountOf(catalogue::kTohoku, kDay), 288U);
    EXPECT_EQ(CountOf(catalogue::kTokyo, kDay), 288U);
}

TEST_F(Import, TakesAllDaysOfAnArchive)
{
    const auto next = year_month_day{local_days(kDay) + days(1)};
    EXPECT_TRUE(Take("202604_jisseki.zip",
                     testing_support::MakeZip({{"a/", ""},
                                               {"a/20260418_power_usage.csv", ClosedCsv(Layout::kKansai, kDay)},
                                               {"a/20260419_power_usage.csv", ClosedCsv(Layout::kKansai, next)}})));
    EXPECT_EQ(CountOf(catalogue::kKansai, kDay), 288U);
    EXPECT_EQ(CountOf(catalogue::kKansai, next), 288U);
}

TEST_F(Import, GoesOnInAnArchiveAfterABadMember)
{
    EXPECT_FALSE(Take("202604_jisseki.zip",
                      testing_support::MakeZip({{"20260416_power_usage.csv", "<html>"},
                                                {"20260417_power_usage.csv", std::string(8U << 20U, 'x')},
                                                {"20260418_power_usage.csv", ClosedCsv(Layout::kKansai, kDay)}})));
    EXPECT_EQ(CountOf(catalogue::kKansai, kDay), 288U);
    EXPECT_THAT(m_out.str(), HasSubstr("202604_jisseki.zip: 20260416_power_usage.csv: refused: "));
    EXPECT_THAT(m_out.str(), HasSubstr("202604_jisseki.zip: 20260417_power_usage.csv: refused: holds more than 1 MiB"));
}

TEST_F(Import, SaysWhenTheNameDoesNotTellTheCompany)
{
    const std::string bytes = ClosedCsv(Layout::kTokyoD1, kDay);
    EXPECT_FALSE(Take("mine.csv", bytes));
    EXPECT_THAT(m_out.str(), HasSubstr("mine.csv: refused: its name does not tell the company: give --company"));
    EXPECT_FALSE(Take("202604_power_usage.zip", bytes));
    EXPECT_THAT(m_out.str(), HasSubstr("several companies (tokyo, chubu): give --company"));
    EXPECT_TRUE(Take("mine.csv", bytes, catalogue::kTokyo));
}

TEST_F(Import, TheDayOfTheNameMustBeTheDayOfTheFile)
{
    EXPECT_FALSE(Take("juyo_02_20260417.csv", ClosedCsv(Layout::kTohoku, kDay)));
    EXPECT_THAT(m_out.str(), StartsWith("juyo_02_20260417.csv: refused: "));
    EXPECT_EQ(CountOf(catalogue::kTohoku, kDay), 0U);
}

TEST_F(Import, AFileOfTodayCountsHoweverOldItIs)
{
    const std::string bytes = PublishedCsv(Layout::kTokyoD1, kToday, local_days(kToday) + hours(2));
    EXPECT_TRUE(Take("juyo-d1-j.csv", bytes)) << m_out.str();
    EXPECT_GT(CountOf(catalogue::kTokyo, kToday), 0U);
}

TEST_F(Import, AFileOfTheFutureIsRefused)
{
    const auto tomorrow = year_month_day{local_days(kToday) + days(1)};
    EXPECT_FALSE(Take("juyo-d1-j.csv", ClosedCsv(Layout::kTokyoD1, tomorrow)));
    EXPECT_EQ(CountOf(catalogue::kTokyo, tomorrow), 0U);
}

TEST_F(Import, RefusesWhatIsNoPublishedFile)
{
    const std::string good = ClosedCsv(Layout::kTokyoD1, kDay);
    const std::string zip = testing_support::MakeZip({{"20260418_power_usage.csv", good}});
    const std::vector<std::string> bad = {"",
                                          "text",
                                          good.substr(0, good.size() / 2),
                                          MakeGzip(good).substr(0, 500),
                                          MakeGzip(std::string(2U << 20U, ' ')),
                                          std::string(2U << 20U, ' '),
                                          zip.substr(0, zip.size() / 2),
                                          testing_support::MakeZip({})};
    for (const std::string& bytes : bad) {
        m_out.str("");
        EXPECT_FALSE(Take("juyo-d1-j.csv", bytes)) << bytes.size();
        EXPECT_THAT(m_out.str(), StartsWith("juyo-d1-j.csv: ")) << bytes.size();
        EXPECT_THAT(m_out.str(), HasSubstr("refused: ")) << bytes.size();
    }
    EXPECT_EQ(CountOf(catalogue::kTokyo, kDay), 0U);
}

TEST_F(Import, FilesThatCannotBeReadAreRefused)
{
    EXPECT_FALSE(m_import.ImportFile(m_scratch.Path() / "juyo-d1-j.csv", {}));
    EXPECT_FALSE(m_import.ImportFile(m_scratch.Path(), catalogue::kTokyo));
    EXPECT_THAT(m_out.str(), HasSubstr("refused: cannot be read: "));
}

TEST_F(Import, NamesAreShownWithoutControlCharacters)
{
    EXPECT_FALSE(m_import.ImportFile(m_scratch.Path() / "a\x1B[2Jb.csv", {}));
    EXPECT_THAT(m_out.str(), StartsWith("a?[2Jb.csv: refused: "));
}

TEST_F(Import, CompaniesAreToldByTheLastPartsOfTheirAddresses)
{
    EXPECT_THAT(CompaniesOfName(m_settings, "juyo-d1-j.csv"), ElementsAre(catalogue::kTokyo));
    EXPECT_THAT(CompaniesOfName(m_settings, "juyo-d1-j.csv.gz"), ElementsAre(catalogue::kTokyo));
    EXPECT_THAT(CompaniesOfName(m_settings, "juyo_cepco003.csv"), ElementsAre(catalogue::kChubu));
    EXPECT_THAT(CompaniesOfName(m_settings, "juyo_06_20260418.csv"), ElementsAre(catalogue::kKansai));
    EXPECT_THAT(CompaniesOfName(m_settings, "juyo-hourly-20260418.csv"), ElementsAre(catalogue::kKyushu));
    for (const std::string name : {"", "juyo_06_2026041.csv", "juyo_06_202604188.csv", "juyo_06_2026041x.csv",
                                   "xjuyo-d1-j.csv", "juyo-d1-j.csvx", "juyo_07_20260418.csv", ".gz"}) {
        EXPECT_THAT(CompaniesOfName(m_settings, name), IsEmpty()) << name;
    }
    m_settings.companies[catalogue::kTokyo].todayUrl = "https://example.org/t/day.csv?of=%Y%m%d";
    m_settings.companies[catalogue::kTokyo].pastUrl = "";
    EXPECT_THAT(CompaniesOfName(m_settings, "day.csv"), ElementsAre(catalogue::kTokyo));
    EXPECT_THAT(CompaniesOfName(m_settings, "202604_power_usage.zip"), ElementsAre(catalogue::kChubu));
}

} // namespace
} // namespace reportd
