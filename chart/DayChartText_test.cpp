#include "chart/DayChartText.h"

#include <gmock/gmock.h>

#include <limits>
#include <sstream>
#include <stdexcept>

namespace chart {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const DayLabels kLabels = {.unit = "MW",
                           .measured = "demand",
                           .forecast = "forecast",
                           .peakDemand = "peak demand 750 MW",
                           .peakSupply = "peak supply 1,000 MW",
                           .now = "now 12:00"};

// Every 5 minutes until noon, which rises from 0 to 600 MW with a gap from 3:00 to 6:00, and the forecast of each hour.
DayCurves WholeCurves()
{
    DayCurves curves = {
        .peakDemand = DayValue{780, 60, 750}, .peakSupply = DayValue{780, 60, 1000}, .nowMinute = 12 * 60};
    for (int minute = 0; minute < 12 * 60; minute += 5) {
        if (minute < 180 || minute >= 360) {
            curves.measured.push_back({minute, 5, minute * 600 / 720});
        }
    }
    for (int hour = 0; hour < 24; ++hour) {
        curves.forecast.push_back({hour * 60, 60, hour < 12 ? hour * 50 : 750});
    }
    return curves;
}

// The lines, of which none may be longer than this.
std::string Drawn(const DayCurves& curves, const TextOptions& options)
{
    std::string text = DayChartText(curves, kLabels, options);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const auto length = std::count_if(line.begin(), line.end(), [](char byte) { return (byte & 0xC0) != 0x80; });
        EXPECT_LE(length, options.columns) << line;
        EXPECT_FALSE(line.ends_with(' ')) << line;
    }
    return text;
}

TEST(DayChartText, DrawsBarsDotsPeaksAndThePresentMinute)
{
    EXPECT_EQ("\n" + Drawn(WholeCurves(), {.columns = 40, .rows = 8}), R"(
   MW             now 12:00
1,000 ┤· · · · · · · ·│· · · · · · ·
      │               │
      │ · · · · · · · •••••••••••••••
      │             ••│
  500 ┤          •••██│
      │       •••█████│
      │    •••████████│
      │••••   ████████│
    0 └┬──────┬───────┬──────┬──────┬
      0:00  6:00    12:00  18:00   24:00
█ demand   • forecast
· · peak demand 750 MW
· · peak supply 1,000 MW
)");
}

TEST(DayChartText, DrawsWithAsciiAlone)
{
    const std::string text = Drawn(WholeCurves(), {.columns = 40, .rows = 8, .isUnicode = false});
    EXPECT_EQ("\n" + text, R"(
   MW             now 12:00
1,000 +. . . . . . . .|. . . . . . .
      |               |
      | . . . . . . . ooooooooooooooo
      |             oo|
  500 +          ooo##|
      |       ooo#####|
      |    ooo########|
      |oooo   ########|
    0 ++------+-------+------+------+
      0:00  6:00    12:00  18:00   24:00
# demand   o forecast
. . peak demand 750 MW
. . peak supply 1,000 MW
)");
}

TEST(DayChartText, FitsEveryWidth)
{
    for (const int columns : {kMinTextColumns, 33, 40, 57, 80, 149, 150, 151, 1000}) {
        for (const int nowMinute : {-1, 0, 719, 1439, 1440}) {
            DayCurves curves = WholeCurves();
            curves.nowMinute = nowMinute;
            EXPECT_THAT(Drawn(curves, {.columns = columns}), HasSubstr("now 12:00\n"));
        }
    }
    EXPECT_EQ(Drawn(WholeCurves(), {.columns = 151}), Drawn(WholeCurves(), {.columns = 150}));
    EXPECT_THROW(DayChartText({}, {}, {.columns = kMinTextColumns - 1}), std::invalid_argument);
    EXPECT_THROW(DayChartText({}, {}, {.rows = 3}), std::invalid_argument);
}

TEST(DayChartText, DrawsNoCurveThatIsMissing)
{
    EXPECT_EQ("\n" + Drawn({}, {.columns = 40, .rows = 4}), R"(
   MW
1,000 ┤
      │
  500 ┤
      │
    0 └┬──────┬───────┬──────┬──────┬
      0:00  6:00    12:00  18:00   24:00
)");
}

TEST(DayChartText, KeepsValuesOfAnySizeWithinThePlot)
{
    constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
    const DayCurves curves = {.measured = {{0, 60, kMost}, {60, 60, 0}, {120, 60, -kMost}, {-5, 0, 7}},
                              .forecast = {{1439, std::numeric_limits<int>::max(), kMost}},
                              .peakSupply = DayValue{0, 60, kMost}};
    EXPECT_THAT(Drawn(curves, {.columns = kMinTextColumns}),
                AllOf(HasSubstr("\n1,000,000,000 ┤· ·"), HasSubstr("      0:00  12:00  24:00\n")));
}

TEST(DayChartText, ColoursEachRunOfMarksAndNothingElse)
{
    const TextColours colours = {"<m>", "<f>", "<s>", "<q>", "</>"};
    std::string text = DayChartText(WholeCurves(), kLabels, {.columns = 40, .rows = 8, .colours = colours});
    EXPECT_THAT(text, HasSubstr("<m>█</> demand   <f>•</> forecast\n<f>· ·</> peak demand 750 MW\n<s>· ·</> peak"));
    EXPECT_THAT(text, HasSubstr("<q>│</>"));
    for (const std::string_view code :
         {colours.measured, colours.forecast, colours.supply, colours.quiet, colours.off}) {
        EXPECT_THAT(text, Not(HasSubstr(std::string(code) + "</>")));
        for (std::size_t place = 0; (place = text.find(code)) != std::string::npos;) {
            text.erase(place, code.size());
        }
    }
    EXPECT_EQ(text, Drawn(WholeCurves(), {.columns = 40, .rows = 8}));
}

TEST(DayChartText, BreaksLabelsThatAreLongerThanALine)
{
    DayLabels labels = kLabels;
    labels.measured = "demand as it was measured every five minutes by the company";
    const std::string text = DayChartText(WholeCurves(), labels, {.columns = 40});
    EXPECT_THAT(text, HasSubstr("\n█ demand as it was measured every five\n  minutes by the company   • forecast\n"));
}

} // namespace
} // namespace chart
