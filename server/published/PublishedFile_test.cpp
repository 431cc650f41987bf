// What the parser reads and tolerates. What it refuses: PublishedFileRefusal_test.cpp.
#include "server/published/PublishedFile.h"

#include "testing/published/Generator.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <iterator>

namespace reportd {
namespace {

using namespace std::chrono_literals;
using namespace testing_support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr year_month_day kDay = 2026y / 4 / 20; // a Monday
constexpr LocalTime kMidnight{local_days{kDay}};
constexpr LocalTime kNoon = kMidnight + 13h + 7min;

// The file of this text (UTF-8).
PublishedFile ReadText(const std::string& text, const ExtraHeadings& extra = {})
{
    return ParsePublishedFile(AsPublished(text), extra);
}

// Records of one series.
std::vector<ReportRecord> RecordsOf(const PublishedFile& file, Series series)
{
    std::vector<ReportRecord> records;
    for (const Figure& figure : file.figures) {
        if (figure.series == series) {
            records.push_back(figure.record);
        }
    }
    return records;
}

ReportRecord Hour(LocalTime start, std::uint64_t megawatts) { return {start, start + 1h, megawatts}; }

std::string NoonText(Layout layout = Layout::kTokyoD1) { return PublishedText(layout, kDay, kNoon); }

class Layouts : public testing::TestWithParam<Layout> {};

INSTANTIATE_TEST_SUITE_P(All, Layouts, testing::ValuesIn(kAllLayouts),
                         [](const auto& info) { return NameOf(info.param); });

// From the first minutes of a day to those of the next, and when the next day is well under way.
constexpr minutes kMoments[] = {5min, 70min, 543min, 787min, 1065min, 1439min, 1446min, 1510min, 4000min};

TEST_P(Layouts, GiveTheFiguresKnownAtEachMoment)
{
    for (const year_month_day day : {kDay, 2026y / 12 / 31, 2028y / 2 / 29}) {
        for (const minutes moment : kMoments) {
            const LocalTime published = local_days{day} + moment;
            const PublishedFile file = ParsePublishedFile(PublishedCsv(GetParam(), day, published), {});
            EXPECT_EQ(file.date, day);
            EXPECT_EQ(file.published, published);
            EXPECT_EQ(file.figures, TrueFigures(GetParam(), day, published)) << moment.count();
        }
    }
}

TEST_P(Layouts, GiveTheSameFiguresInOtherForms)
{
    const std::vector<Figure> expected = TrueFigures(GetParam(), kDay, kNoon);
    for (const CsvOptions& form :
         {CsvOptions{.hasPadding = true}, CsvOptions{.hasLfOnly = true},
          CsvOptions{.hasPadding = true, .hasLfOnly = true}, CsvOptions{.damage = Damage::kUtf8},
          CsvOptions{.damage = Damage::kSwappedColumns}, CsvOptions{.damage = Damage::kNewColumn}}) {
        EXPECT_EQ(ParsePublishedFile(PublishedCsv(GetParam(), kDay, kNoon, form), {}).figures, expected);
    }
    const std::string marked = "\xEF\xBB\xBF" + NoonText(GetParam());
    EXPECT_EQ(ParsePublishedFile(marked, {}).figures, expected);
}

TEST_P(Layouts, HaveTheSameHeadingsAllDayAndOnEveryDay)
{
    const PublishedFile first = ParsePublishedFile(PublishedCsv(GetParam(), kDay, kMidnight + 5min), {});
    EXPECT_THAT(first.headings, Not(IsEmpty()));
    for (const minutes moment : kMoments) {
        const year_month_day other = 2027y / 11 / 3;
        const PublishedFile file = ParsePublishedFile(PublishedCsv(GetParam(), other, local_days{other} + moment), {});
        EXPECT_EQ(file.headings, first.headings);
        EXPECT_EQ(file.unknown, first.unknown);
    }
}

TEST_P(Layouts, TellARevisionOfTheirValues)
{
    const LocalTime later = kMidnight + 50h;
    const std::vector<Figure> revised = TrueFigures(GetParam(), kDay, later, 1);
    EXPECT_NE(revised, TrueFigures(GetParam(), kDay, later));
    EXPECT_EQ(ParsePublishedFile(PublishedCsv(GetParam(), kDay, later, {.revision = 1}), {}).figures, revised);
}

// A file that was cut off says nothing that the whole file does not say.
TEST_P(Layouts, SayNothingFalseWhenTheyAreCutOffAnywhere)
{
    const std::string bytes = PublishedCsv(GetParam(), kDay, kMidnight + 20h);
    const std::vector<Figure> all = TrueFigures(GetParam(), kDay, kMidnight + 20h);
    std::size_t refused = 0;
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        try {
            const PublishedFile file = ParsePublishedFile(std::string_view(bytes).substr(0, size), {});
            for (const Figure& figure : file.figures) {
                ASSERT_TRUE(std::find(all.begin(), all.end(), figure) != all.end()) << size;
            }
        } catch (const CRefusedFile&) {
            ++refused;
        }
    }
    // The rest ends after the hourly table, between two blocks, or lacks the empty line at the end.
    EXPECT_GE(refused, bytes.size() - 20);
}

// Bytes that another encoder made than the one of the generator.
TEST(PublishedFile, ReadsShiftJisWithBothWidths)
{
    std::string bytes = "2026/4/20 1:10 UPDATE\r\n\r\n"
                        "\x83s\x81[\x83N\x8E\x9E\x8B\x9F\x8B\x8B\x97\xCD(\x96\x9CkW),\x8E\x9E\x8A\xD4\x91\xD1\r\n"
                        "3602,13:00\x81`14:00\r\n\r\n"
                        "DATE,TIME,\x93\x96\x93\xFA\x8E\xC0\x90\xD1(\x96\x9CkW),\x97\\\x91\xAA\x92l(\x96\x9CkW)\r\n";
    for (int hour = 0; hour < 24; ++hour) {
        bytes += "2026/4/20," + std::to_string(hour) + ":00," + (hour == 0 ? "2711" : "0") + ",2750\r\n";
    }
    bytes += "\r\nDATE,TIME,"
             "\x93\x96\x93\xFA\x8E\xC0\x90\xD1\x81i\x82T\x95\xAA\x8A\xD4\x8Au\x92l)\x81i\x96\x9CkW),"
             "\x91\xBE\x97z\x8C\xF5\x94\xAD\x93\x64\x8E\xC0\x90\xD1(\x82T\x95\xAA\x8A\xD4\x8Au\x92l)("
             "\x96\x9C\x82\x8B\x82v\x81j\r\n";
    for (int minute = 0; minute < 1440; minute += 5) {
        const std::string padding = minute % 60 < 10 ? ":0" : ":";
        bytes += "2026/4/20," + std::to_string(minute / 60) + padding + std::to_string(minute % 60) +
                 (minute == 65 ? ",2699,7\r\n" : ",,\r\n");
    }
    const PublishedFile file = ParsePublishedFile(bytes, {});
    EXPECT_THAT(RecordsOf(file, Series::kInstantUsage),
                ElementsAre(ReportRecord{kMidnight + 65min, kMidnight + 70min, 26990}));
    EXPECT_THAT(RecordsOf(file, Series::kSolar), ElementsAre(ReportRecord{kMidnight + 65min, kMidnight + 70min, 70}));
    EXPECT_THAT(RecordsOf(file, Series::kActualUsage), ElementsAre(Hour(kMidnight, 27110)));
    EXPECT_THAT(RecordsOf(file, Series::kPeakSupply), ElementsAre(Hour(kMidnight + 13h, 36020)));
    EXPECT_EQ(RecordsOf(file, Series::kEstimatedUsage).size(), 24U);
    EXPECT_THAT(file.unknown, IsEmpty());
}

TEST(PublishedFile, TakesBothDashesBetweenTwoTimes)
{
    const std::string text = NoonText();
    const PublishedFile file = ReadText(text);
    for (const std::string dash : {"〜", "~"}) {
        EXPECT_EQ(ParsePublishedFile(Changed(text, "～", dash), {}).figures, file.figures) << dash;
    }
}

// The other Tokyo file has supply where the usage rate is in the first one.
TEST(PublishedFile, FindsColumnsByTheirNames)
{
    const PublishedFile file = ReadText(NoonText(Layout::kTokyoS1));
    const PublishedFile usual = ReadText(NoonText(Layout::kTokyoD1));
    EXPECT_EQ(RecordsOf(file, Series::kSupply), RecordsOf(usual, Series::kSupply));
    EXPECT_EQ(RecordsOf(file, Series::kActualUsage), RecordsOf(usual, Series::kActualUsage));
    EXPECT_THAT(file.unknown, ElementsAre("今季最大電力(万kW)", "記録日"));
}

TEST(PublishedFile, LeavesTablesOfOtherDaysAlone)
{
    const std::string text = NoonText(Layout::kTokyoS1);
    ASSERT_THAT(text, testing::HasSubstr("DATE,TIME,曜日,当日実績(万kW),供給力(万kW)\n2026/4/19,0:00,"));
    EXPECT_EQ(ReadText(text).figures, TrueFigures(Layout::kTokyoS1, kDay, kNoon));
}

TEST(PublishedFile, FindsBlocksInAnyOrder)
{
    const std::string text = NoonText();
    const std::size_t hourly = text.find("DATE,TIME,");
    const std::size_t rate = text.find("最大使用率");
    const std::string moved =
        Changed(text, text.substr(hourly, rate - hourly), "") + text.substr(hourly, rate - hourly);
    EXPECT_EQ(ReadText(moved).figures, ReadText(text).figures);
}

TEST(PublishedFile, TellsWhatItDoesNotKnow)
{
    const PublishedFile file =
        ParsePublishedFile(PublishedCsv(Layout::kTokyoD1, kDay, kNoon, {.damage = Damage::kNewColumn}), {});
    EXPECT_THAT(file.unknown, ElementsAre("蓄電池(万kW)"));
    EXPECT_THAT(file.headings, Contains("蓄電池(万kW)"));
    EXPECT_THAT(ReadText(NoonText()).unknown, IsEmpty());
    EXPECT_THAT(ReadText(NoonText(Layout::kKansaiOld)).unknown,
                ElementsAre("本日の最高気温(°C)", "前日の最高気温(°C)", "昨年の最高気温(°C)", "翌日の最高気温(°C)"));
}

TEST(PublishedFile, ProseIsNoHeading)
{
    const std::string text = NoonText() + std::string(200, 'x') + "\n\n" + std::string(201, 'y') + "\n";
    EXPECT_THAT(ReadText(text).unknown, ElementsAre(std::string(200, 'x')));
}

TEST(PublishedFile, DateInAHeadingIsNoOtherLayout)
{
    const std::string text = NoonText(Layout::kKansaiOld);
    const PublishedFile file = ReadText(Changed(text, "本日の最高気温(℃)", "４月２０日の最高気温(℃)"));
    EXPECT_THAT(file.unknown, Contains("#月#日の最高気温(°C)"));
    EXPECT_EQ(ReadText(Changed(text, "本日の最高気温(℃)", "5月1日の最高気温(℃)")).headings, file.headings);
    EXPECT_EQ(ReadText(Changed(text, "本日の", "12/31の")).unknown.front(), "#/#の最高気温(°C)");
}

TEST(PublishedFile, BlockThatIsMissingIsNoFault)
{
    const std::string text = NoonText();
    const std::size_t peaks = text.find("ピーク時供給力");
    const std::size_t hourly = text.find("DATE,TIME,");
    const std::size_t instant = text.find("DATE,TIME,", hourly + 1);
    const PublishedFile withoutPeaks = ReadText(Changed(text, text.substr(peaks, hourly - peaks), ""));
    EXPECT_THAT(RecordsOf(withoutPeaks, Series::kPeakSupply), IsEmpty());
    EXPECT_EQ(RecordsOf(withoutPeaks, Series::kEstimatedUsage).size(), 24U);
    const PublishedFile withoutInstant = ReadText(text.substr(0, instant));
    EXPECT_THAT(RecordsOf(withoutInstant, Series::kInstantUsage), IsEmpty());
    const PublishedFile withoutHourly = ReadText(Changed(text, text.substr(hourly, instant - hourly), ""));
    EXPECT_THAT(RecordsOf(withoutHourly, Series::kActualUsage), IsEmpty());
    EXPECT_EQ(RecordsOf(withoutHourly, Series::kInstantUsage), RecordsOf(ReadText(text), Series::kInstantUsage));
}

// --- Values that are there and values that are not yet.

// The cells of the hourly table's row of an hour, from the third one on, replaced.
std::string WithHour(const std::string& text, const std::string& time, const std::string& cells)
{
    const std::size_t row = text.find("2026/4/20," + time + ",", text.find("DATE,TIME,"));
    const std::size_t end = text.find('\n', row);
    return text.substr(0, row) + "2026/4/20," + time + "," + cells + text.substr(end);
}

TEST(PublishedFile, HourCountsOnceItHasEnded)
{
    // The value of an hour that has not ended is the mean of its beginning.
    const std::string running = WithHour(NoonText(), "13:00", "4000,4100,80,5000");
    EXPECT_EQ(ReadText(running).figures.size(), ReadText(NoonText()).figures.size());
    const auto lastHour = [&running](const std::string& stamp) {
        return RecordsOf(ReadText(Changed(running, "13:07 UPDATE", stamp + " UPDATE")), Series::kActualUsage)
            .back()
            .start;
    };
    EXPECT_EQ(lastHour("13:59"), kMidnight + 12h);
    EXPECT_EQ(lastHour("14:00"), kMidnight + 13h);
}

TEST(PublishedFile, ZeroAndEmptyHoursAreNone)
{
    const std::size_t actual = RecordsOf(ReadText(NoonText()), Series::kActualUsage).size();
    for (const char* none : {"0", ""}) {
        const std::string cells = std::string(none) + "," + none + ",80," + none;
        const PublishedFile file = ReadText(WithHour(NoonText(), "5:00", cells));
        EXPECT_EQ(RecordsOf(file, Series::kActualUsage).size(), actual - 1);
        EXPECT_EQ(RecordsOf(file, Series::kEstimatedUsage).size(), 23U);
        EXPECT_EQ(RecordsOf(file, Series::kSupply).size(), 23U);
    }
    // Cells at the end of a row may be left out.
    EXPECT_EQ(RecordsOf(ReadText(WithHour(NoonText(), "5:00", "3000")), Series::kSupply).size(), 23U);
}

TEST(PublishedFile, MeasurementCountsFromItsOwnMoment)
{
    // Values up to 13:05 in a file of that very moment, and of the minute before.
    const auto newest = [](const std::string& stamp) {
        const PublishedFile file = ReadText(Changed(NoonText(), "13:07 UPDATE", stamp + " UPDATE"));
        return RecordsOf(file, Series::kInstantUsage).back().start;
    };
    EXPECT_EQ(newest("13:05"), kMidnight + 13h + 5min);
    EXPECT_EQ(newest("13:04"), kMidnight + 13h);
}

// The cells of the five-minute table's row of a time replaced.
std::string WithInstant(const std::string& time, const std::string& cells)
{
    const std::string text = NoonText();
    const std::size_t table = text.rfind("DATE,TIME,");
    return text.substr(0, table) + WithHour(text.substr(table), time, cells);
}

TEST(PublishedFile, GenerationCountsOnlyWithItsDemand)
{
    const std::size_t usual = RecordsOf(ReadText(NoonText()), Series::kSolar).size();
    EXPECT_EQ(RecordsOf(ReadText(WithInstant("3:05", "3000,0,0")), Series::kSolar).size(), usual);
    for (const char* cells : {"3000,,", "0,0,0", ",0,0", "0,12,1", ",12,1"}) {
        EXPECT_EQ(RecordsOf(ReadText(WithInstant("3:05", cells)), Series::kSolar).size(), usual - 1) << cells;
    }
    // At night it is 0, and a value.
    EXPECT_EQ(RecordsOf(ReadText(NoonText()), Series::kSolar).front(), (ReportRecord{kMidnight, kMidnight + 5min, 0}));
}

// --- Peaks.

// Text of the one row of the block with this heading, replaced.
std::string WithPeak(const std::string& heading, const std::string& row)
{
    const std::string text = PublishedText(Layout::kTokyoD1, kDay, kMidnight + 20h);
    const std::size_t start = text.find('\n', text.find("\n" + heading) + 1) + 1;
    return text.substr(0, start) + row + text.substr(text.find('\n', start));
}

std::vector<ReportRecord> PeaksWith(const std::string& heading, const std::string& row, Series series)
{
    return RecordsOf(ReadText(WithPeak(heading, row)), series);
}

TEST(PublishedFile, PeaksAreOfTheirOwnHoursAndDays)
{
    EXPECT_THAT(PeaksWith("ピーク時供給力", "3602,16:00～17:00,4/20,14:20,26,79", Series::kPeakSupply),
                Contains(Hour(kMidnight + 16h, 36020)));
    EXPECT_THAT(PeaksWith("予想最大電力", "2850,0:00～1:00,4/20,14:20", Series::kPeakDemand),
                Contains(Hour(kMidnight, 28500)));
    EXPECT_THAT(PeaksWith("翌日のピーク時供給力", "3602,23:00～24:00,4/20,14:20,26,79", Series::kPeakSupply),
                Contains(Hour(kMidnight + 47h, 36020)));
    EXPECT_THAT(PeaksWith("翌日の予想最大電力", "2850,23:00～0:00,4/20,14:20", Series::kPeakDemand),
                Contains(Hour(kMidnight + 47h, 28500)));
}

TEST(PublishedFile, PeaksThatAreNotKnownYetAreNone)
{
    for (const char* none : {"", ",,,,,", "0,0:00～1:00,4/20,0:00,0,0", "0,,,", ",0:00～1:00,4/20,0:00", "0"}) {
        EXPECT_EQ(PeaksWith("翌日のピーク時供給力", none, Series::kPeakSupply).size(), 1U) << none;
        EXPECT_EQ(PeaksWith("予想最大電力", none, Series::kPeakDemand).size(), 1U) << none;
    }
}

TEST(PublishedFile, FullWidthBlanksAreBlank)
{
    EXPECT_EQ(PeaksWith("翌日のピーク時供給力", "　,　", Series::kPeakSupply).size(), 1U);
    const std::string text = NoonText();
    EXPECT_EQ(ReadText(Changed(text, "\n\n最大使用率", "\n　,,　\n最大使用率")).figures, ReadText(text).figures);
}

TEST(PublishedFile, PeaksOfTheUsageRateAreOthers)
{
    const PublishedFile file = ReadText(WithPeak("使用率ピーク時供給力", "4321,18:00～19:00,4/20,14:20"));
    EXPECT_EQ(file.figures, TrueFigures(Layout::kTokyoD1, kDay, kMidnight + 20h));
}

TEST(PublishedFile, PeakMayStandTwiceIfItIsTheSame)
{
    const std::string text = NoonText();
    const std::size_t start = text.find("予想最大電力");
    const std::string block = text.substr(start, text.find("\n\n", start) + 2 - start);
    EXPECT_EQ(ReadText(Changed(text, block, block + block)).figures, ReadText(text).figures);
}

TEST(PublishedFile, PeakWithoutItsHourIsLeftAside)
{
    const PublishedFile file = ReadText(Changed(NoonText(), "予想最大電力(万kW),時間帯", "予想最大電力(万kW),時間枠"));
    EXPECT_THAT(RecordsOf(file, Series::kPeakDemand), IsEmpty());
    EXPECT_THAT(file.unknown, ElementsAre("時間枠"));
}

// --- Notes.

TEST(PublishedFile, NotesBeforeRowsAreNoRows)
{
    const std::vector<Figure> expected = TrueFigures(Layout::kTokyoD1, kDay, kNoon);
    std::string text = NoonText();
    text = Changed(text, "2026/4/20,0:00,", "(注)速報値です。\n2026/4/20,0:00,");
    text = Changed(text, "\n2026/4/20,1:00,", "\n※,2026/4/20,1:00,");
    text = Changed(text, "\n2026/4/20,13:05,", "\n確報,2026/4/20,13:05,");
    EXPECT_EQ(ReadText(text).figures, expected);
    const std::size_t row = text.find('\n', text.find("ピーク時供給力")) + 1;
    EXPECT_EQ(ReadText(std::string(text).insert(row, "※,")).figures, expected);
    EXPECT_EQ(ReadText(std::string(text).insert(row, "※ 暫定\n")).figures, expected);
}

// --- Headings of the owner's.

TEST(PublishedFile, TakesHeadingsOfTheSettings)
{
    std::string text = NoonText();
    text = Changed(text, "予測値(万kW)", "予報値(万kW)");
    text = Changed(text, "\n予想最大電力(万kW)", "\n最大電力予報(万kW)");
    text = Changed(text, "\n翌日の予想最大電力(万kW)", "\n翌日の最大電力予報(万kW)");
    const PublishedFile without = ReadText(text);
    EXPECT_THAT(without.unknown, ElementsAre("最大電力予報(万kW)", "予報値(万kW)", "翌日の最大電力予報(万kW)"));
    EXPECT_THAT(RecordsOf(without, Series::kEstimatedUsage), IsEmpty());
    EXPECT_THAT(RecordsOf(without, Series::kPeakDemand), IsEmpty());
    const ExtraHeadings extra{
        {{Series::kEstimatedUsage, {"べつの", "予報値 （万ｋＷ）"}}, {Series::kPeakDemand, {"最大電力予報(万kW)"}}}};
    const PublishedFile file = ReadText(text, extra);
    EXPECT_EQ(file.figures, TrueFigures(Layout::kTokyoD1, kDay, kNoon));
    EXPECT_THAT(file.unknown, IsEmpty());
}

TEST(PublishedFile, TomorrowsHoursAreNotTodays)
{
    const PublishedFile file = ReadText(Changed(NoonText(), "予測値(万kW)", "翌日の予測値(万kW)"));
    EXPECT_THAT(RecordsOf(file, Series::kEstimatedUsage), IsEmpty());
    EXPECT_THAT(file.unknown, ElementsAre("翌日の予測値(万kW)"));
}

TEST(PublishedFile, KnownHeadingsKeepTheirMeaning)
{
    const ExtraHeadings extra{{{Series::kSupply, {"予測値(万kW)"}}}};
    EXPECT_EQ(ReadText(NoonText(), extra).figures, TrueFigures(Layout::kTokyoD1, kDay, kNoon));
}

} // namespace
} // namespace reportd
