// That the synthetic files have each company's habits: otherwise what reads them would be tested with one form only.
#include "testing/published/Generator.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>

namespace testing_support {
namespace {

using namespace std::chrono_literals;
using reportd::Figure;
using reportd::LocalTime;
using reportd::Series;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr std::chrono::year_month_day kDay = 2026y / 4 / 20;
constexpr LocalTime kMidnight{std::chrono::local_days{kDay}};
constexpr LocalTime kNoon = kMidnight + 13h + 7min;

std::string TextAt(Layout layout, std::chrono::minutes moment)
{
    return PublishedText(layout, kDay, kMidnight + moment);
}

std::ptrdiff_t CountOf(Layout layout, Series series, LocalTime published)
{
    const std::vector<Figure> figures = TrueFigures(layout, kDay, published);
    return std::count_if(figures.begin(), figures.end(), [series](const Figure& f) { return f.series == series; });
}

TEST(Generator, WritesShiftJisWithCrLf)
{
    const std::string bytes = PublishedCsv(Layout::kTokyoD1, kDay, kNoon);
    EXPECT_THAT(bytes, StartsWith("2026/4/20 13:07 UPDATE\r\n"
                                  "\x83s\x81[\x83N\x8E\x9E\x8B\x9F\x8B\x8B\x97\xCD(\x96\x9CkW),"));
    EXPECT_THAT(bytes, HasSubstr(":00\x81`"));
    EXPECT_THAT(bytes, EndsWith("\r\n\r\n"));
    const std::string text = PublishedText(Layout::kTokyoD1, kDay, kNoon);
    EXPECT_EQ(std::count(bytes.begin(), bytes.end(), '\r'), std::count(text.begin(), text.end(), '\n'));
    EXPECT_THROW(AsPublished("한"), std::runtime_error);
}

TEST(Generator, GivesTheSameForTheSame)
{
    for (const Layout layout : kAllLayouts) {
        EXPECT_EQ(PublishedCsv(layout, kDay, kNoon), PublishedCsv(layout, kDay, kNoon));
        EXPECT_NE(PublishedCsv(layout, kDay, kNoon), PublishedCsv(layout, kDay, kNoon, {.revision = 1}));
        EXPECT_EQ(TrueFigures(layout, kDay, kNoon), TrueFigures(layout, kDay, kNoon));
        EXPECT_THROW(PublishedCsv(layout, kDay, kMidnight - 1min), std::invalid_argument);
    }
}

TEST(Generator, RevisionChangesMeasuredValuesOnly)
{
    const std::vector<Figure> first = TrueFigures(Layout::kTohoku, kDay, kNoon);
    const std::vector<Figure> revised = TrueFigures(Layout::kTohoku, kDay, kNoon, 1);
    ASSERT_EQ(first.size(), revised.size());
    std::map<Series, int> changed;
    for (std::size_t i = 0; i < first.size(); ++i) {
        changed[first[i].series] += first[i] == revised[i] ? 0 : 1;
    }
    EXPECT_EQ(changed[Series::kInstantUsage], 23); // each 35 minutes, 0:00 to 12:50
    EXPECT_EQ(changed[Series::kActualUsage], 13);
    EXPECT_EQ(changed[Series::kEstimatedUsage] + changed[Series::kSupply] + changed[Series::kPeakDemand], 0);
}

TEST(Generator, LayoutsHaveTheirHabits)
{
    EXPECT_THAT(TextAt(Layout::kTokyoD1, 13h), HasSubstr("当日実績(万kW),予測値(万kW),使用率(%),供給力(万kW)\n"));
    EXPECT_THAT(TextAt(Layout::kTokyoS1, 13h), AllOf(HasSubstr("当日実績(万kW),予測値(万kW),供給力(万kW),使用率(%)\n"),
                                                     HasSubstr("DATE,TIME,曜日,当日実績(万kW),")));
    EXPECT_THAT(TextAt(Layout::kTohoku, 13h),
                AllOf(HasSubstr("～15:00,4月20日,"), HasSubstr("風力発電実績（５分間隔値）")));
    EXPECT_THAT(TextAt(Layout::kChubu, 13h),
                AllOf(HasSubstr("\n需要ピーク時供給力(万kW),"), HasSubstr(",供給力想定値(万kW)\n")));
    EXPECT_THAT(TextAt(Layout::kKansai, 13h),
                AllOf(StartsWith("2026/04/20 13:00 UPDATE\n"), HasSubstr("予想値(万kW)")));
    EXPECT_THAT(TextAt(Layout::kKansaiOld, 13h), AllOf(HasSubstr("気温(℃)\n*,"), Not(HasSubstr("供給力(万kW)\n2026"))));
    EXPECT_THAT(TextAt(Layout::kKyushu, 13h), HasSubstr("当日実績(５分間隔値）(万kW）"));
}

TEST(Generator, MarksWhatIsNotKnownYetInBothWays)
{
    EXPECT_THAT(TextAt(Layout::kTokyoD1, 13h),
                AllOf(HasSubstr("\n,,,,,\n"), HasSubstr("\n2026/4/20,23:55,,,\n"), HasSubstr("\n2026/4/20,23:00,0,")));
    EXPECT_THAT(TextAt(Layout::kChubu, 13h), AllOf(HasSubstr("\n0,0:00～1:00,"), HasSubstr("\n2026/4/20,23:00,,")));
    EXPECT_THAT(TextAt(Layout::kKyushu, 13h), HasSubstr("\n2026/4/20,23:55,0,0\n"));
}

TEST(Generator, ValuesAppearAfterTheirDelays)
{
    EXPECT_EQ(CountOf(Layout::kTokyoD1, Series::kInstantUsage, kMidnight), 1);
    EXPECT_EQ(CountOf(Layout::kKyushu, Series::kInstantUsage, kMidnight + 4min), 0);
    EXPECT_EQ(CountOf(Layout::kKyushu, Series::kInstantUsage, kMidnight + 5min), 1);
    EXPECT_EQ(CountOf(Layout::kKansai, Series::kInstantUsage, kMidnight + 24h + 14min), 287);
    EXPECT_EQ(CountOf(Layout::kKansai, Series::kInstantUsage, kMidnight + 24h + 15min), 288);
    EXPECT_EQ(CountOf(Layout::kTohoku, Series::kActualUsage, kMidnight + 1h + 5min), 0);
    EXPECT_EQ(CountOf(Layout::kTohoku, Series::kActualUsage, kMidnight + 1h + 6min), 1);
    EXPECT_EQ(CountOf(Layout::kTohoku, Series::kWind, kNoon), CountOf(Layout::kTohoku, Series::kInstantUsage, kNoon));
}

TEST(Generator, TomorrowsPeaksAppearInTheAfternoon)
{
    EXPECT_EQ(CountOf(Layout::kKyushu, Series::kPeakSupply, kMidnight + 16h + 29min), 1);
    EXPECT_EQ(CountOf(Layout::kKyushu, Series::kPeakSupply, kMidnight + 16h + 30min), 2);
    EXPECT_EQ(CountOf(Layout::kKansai, Series::kPeakDemand, kMidnight + 17h + 59min), 1);
    EXPECT_EQ(CountOf(Layout::kKansai, Series::kPeakDemand, kMidnight + 18h), 2);
}

TEST(Generator, ForecastsAreRenewedDuringTheDay)
{
    const auto forecastAt = [](std::chrono::minutes moment) {
        std::vector<Figure> figures = TrueFigures(Layout::kTokyoD1, kDay, kMidnight + moment);
        std::erase_if(figures, [](const Figure& f) { return f.series != Series::kEstimatedUsage; });
        return figures;
    };
    EXPECT_EQ(forecastAt(0min).size(), 24U);
    EXPECT_EQ(forecastAt(329min), forecastAt(0min));
    EXPECT_NE(forecastAt(330min), forecastAt(329min));
    EXPECT_NE(forecastAt(570min), forecastAt(569min));
    EXPECT_NE(forecastAt(810min), forecastAt(809min));
    EXPECT_EQ(forecastAt(48h), forecastAt(810min));
}

} // namespace
} // namespace testing_support
