#include "chart/DayChartSvg.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace chart {
namespace {

using testing::HasSubstr;
using testing::Not;

const DayLabels kLabels = {.title = "Tokyo, today",
                           .description = "Demand and supply",
                           .unit = "MW",
                           .measured = "Demand",
                           .yesterday = "Day before",
                           .forecast = "Forecast",
                           .supply = "Supply",
                           .peakDemand = "Peak demand 750 MW",
                           .peakSupply = "Peak supply 1,000 MW",
                           .now = "Now 1:00"};

DayCurves WholeCurves()
{
    return {.measured = {{0, 5, 500}, {5, 5, 1000}},
            .yesterday = {{0, 5, 250}},
            .forecast = {{0, 60, 500}, {60, 60, 750}},
            .supply = {{0, 60, 1000}},
            .peakDemand = DayValue{60, 60, 750},
            .peakSupply = DayValue{60, 60, 1000},
            .nowMinute = 60};
}

std::string PartOfPage(const DayCurves& curves)
{
    return DayChartSvg(curves, kLabels, {.width = 760, .height = 340, .id = "c", .isStandAlone = false});
}

// The value of an attribute of the svg element.
double Attribute(const std::string& svg, const std::string& name)
{
    const std::size_t place = svg.find(" " + name + "=\"");
    return place == std::string::npos ? -1 : std::stod(svg.substr(place + name.size() + 3));
}

// The path of a class; empty when there is none.
std::string PathOf(const std::string& svg, const std::string& style)
{
    const std::string start = "<path class=\"" + style + "\" d=\"";
    const std::size_t place = svg.find(start);
    if (place == std::string::npos) {
        return {};
    }
    const std::size_t from = place + start.size();
    return svg.substr(from, svg.find('"', from) - from);
}

// The commands of a path without their numbers.
std::string CommandsOf(std::string path)
{
    std::erase_if(path,
                  [](char each) { return std::string_view("0123456789. ").find(each) != std::string_view::npos; });
    return path;
}

TEST(DayChartSvg, DrawsMeasurementsAsALineToScale)
{
    const std::string svg = PartOfPage(WholeCurves());
    const double left = Attribute(svg, "data-left");
    const double top = Attribute(svg, "data-top");
    const double bottom = Attribute(svg, "data-bottom");
    const std::string path = PathOf(svg, "line measured");
    double x1 = 0;
    double y1 = 0;
    double x2 = 0;
    double y2 = 0;
    ASSERT_EQ(std::sscanf(path.c_str(), "M%lf %lfL%lf %lf", &x1, &y1, &x2, &y2), 4) << path;
    EXPECT_NEAR(x1, left, 0.1);
    EXPECT_NEAR(y1, (top + bottom) / 2, 0.1);
    EXPECT_NEAR(x2, left + (Attribute(svg, "data-right") - left) * 5 / 1440, 0.1);
    EXPECT_NEAR(y2, top, 0.1);
}

TEST(DayChartSvg, DrawsHoursAsStepsAndASingleValueAsADot)
{
    const std::string svg = PartOfPage(WholeCurves());
    EXPECT_EQ(CommandsOf(PathOf(svg, "line forecast")), "MLLL");
    EXPECT_EQ(CommandsOf(PathOf(svg, "line supply")), "ML");
    EXPECT_EQ(CommandsOf(PathOf(svg, "line yesterday")), "Mh");
}

TEST(DayChartSvg, LeavesOutWhatThereIsNot)
{
    const std::string svg = PartOfPage({});
    EXPECT_THAT(svg, HasSubstr(">1,000</text>"));
    EXPECT_THAT(svg, HasSubstr(">24:00</text>"));
    EXPECT_THAT(svg, Not(HasSubstr("<path")));
    EXPECT_THAT(svg, Not(HasSubstr("peak")));
    EXPECT_THAT(svg, Not(HasSubstr("class=\"now\"")));
    EXPECT_THAT(svg, Not(HasSubstr("nan")));
}

TEST(DayChartSvg, LabelsPeaksAndNow)
{
    const std::string svg = PartOfPage(WholeCurves());
    EXPECT_THAT(svg, HasSubstr(">Peak demand 750 MW</text>"));
    EXPECT_THAT(svg, HasSubstr(">Peak supply 1,000 MW</text>"));
    EXPECT_THAT(svg, HasSubstr("<line class=\"peak-hour supply\""));
    EXPECT_THAT(svg, HasSubstr(">Now 1:00</text>"));
}

// The start of the text element that holds this text.
std::string ElementOf(const std::string& svg, const std::string& text)
{
    const std::size_t place = svg.find(text);
    const std::size_t element = svg.rfind("<text", place);
    return svg.substr(element, place - element);
}

TEST(DayChartSvg, KeepsTheLabelOfNowInsideAtTheEndOfTheDay)
{
    DayCurves curves;
    curves.nowMinute = 1439;
    EXPECT_THAT(ElementOf(PartOfPage(curves), "Now 1:00"), HasSubstr("class=\"label before\""));
    curves.nowMinute = 0;
    EXPECT_THAT(ElementOf(PartOfPage(curves), "Now 1:00"), HasSubstr("class=\"label\""));
}

TEST(DayChartSvg, KeepsTheLabelsOfNearPeaksApart)
{
    for (const std::int64_t supply : {750, 740, 760, 300, 990}) {
        DayCurves curves = WholeCurves();
        curves.peakSupply->megawatts = supply;
        const std::string svg = PartOfPage(curves);
        EXPECT_GE(
            std::abs(Attribute(ElementOf(svg, "Peak demand"), "y") - Attribute(ElementOf(svg, "Peak supply"), "y")), 16)
            << supply;
    }
}

TEST(DayChartSvg, EscapesEveryText)
{
    DayLabels labels;
    for (std::string* text : {&labels.title, &labels.description, &labels.unit, &labels.measured, &labels.yesterday,
                              &labels.forecast, &labels.supply, &labels.peakDemand, &labels.peakSupply, &labels.now}) {
        *text = "<b>\"&'";
    }
    const std::string svg = DayChartSvg(WholeCurves(), labels, {.id = "\"><b>"});
    EXPECT_THAT(svg, Not(HasSubstr("<b>")));
    EXPECT_THAT(svg, HasSubstr("&lt;b&gt;&quot;&amp;&#39;"));
}

TEST(DayChartSvg, NamesItselfForReadersWhoDoNotSeeIt)
{
    const std::string svg = PartOfPage(WholeCurves());
    EXPECT_THAT(svg, HasSubstr("role=\"img\" aria-labelledby=\"c-title\" aria-describedby=\"c-description\""));
    EXPECT_THAT(svg, HasSubstr("<title id=\"c-title\">Tokyo, today</title>"));
    EXPECT_THAT(svg, HasSubstr("<desc id=\"c-description\">Demand and supply</desc>"));
}

TEST(DayChartSvg, BringsStyleAndLegendOnlyWhenItStandsAlone)
{
    const std::string alone = DayChartSvg(WholeCurves(), kLabels, {});
    EXPECT_THAT(alone, HasSubstr("<style>"));
    EXPECT_THAT(alone, HasSubstr("prefers-color-scheme: dark"));
    EXPECT_THAT(alone, HasSubstr(">Day before</text>"));
    EXPECT_THAT(alone, HasSubstr("xmlns=\"http://www.w3.org/2000/svg\""));
    const std::string part = PartOfPage(WholeCurves());
    EXPECT_THAT(part, Not(HasSubstr("style")));
    EXPECT_THAT(part, Not(HasSubstr(">Day before</text>")));
}

TEST(DayChartSvg, PutsALongLegendIntoSeveralRows)
{
    DayLabels labels = kLabels;
    const double oneRow = Attribute(DayChartSvg(WholeCurves(), labels, {.width = 760}), "data-top");
    labels.forecast = std::string(80, 'x');
    const double severalRows = Attribute(DayChartSvg(WholeCurves(), labels, {.width = 760}), "data-top");
    EXPECT_GT(severalRows, oneRow);
}

TEST(DayChartSvg, DrawsASmallPictureWithoutAxes)
{
    const std::string svg =
        DayChartSvg(WholeCurves(), kLabels, {.width = 60, .height = 20, .isStandAlone = false, .hasAxes = false});
    EXPECT_THAT(svg, HasSubstr("class=\"line measured\""));
    EXPECT_THAT(svg, HasSubstr("<title id=\"chart-title\">Tokyo, today</title>"));
    EXPECT_THAT(svg, HasSubstr("aria-labelledby=\"chart-title\""));
    EXPECT_THAT(svg, Not(HasSubstr("<text")));
    EXPECT_THROW(DayChartSvg({}, kLabels, {.width = 59, .hasAxes = false}), std::invalid_argument);
    EXPECT_THROW(DayChartSvg({}, kLabels, {.height = 19, .hasAxes = false}), std::invalid_argument);
}

TEST(DayChartSvg, HasFewerMarksWhenItIsSmall)
{
    const std::string small = DayChartSvg({}, kLabels, {.width = 340, .height = 240, .isStandAlone = false});
    EXPECT_THAT(small, HasSubstr(">6:00</text>"));
    EXPECT_THAT(small, Not(HasSubstr(">3:00</text>")));
    EXPECT_THAT(PartOfPage({}), HasSubstr(">3:00</text>"));
    EXPECT_THROW(DayChartSvg({}, kLabels, {.width = 239}), std::invalid_argument);
    EXPECT_THROW(DayChartSvg({}, kLabels, {.height = 159}), std::invalid_argument);
}

} // namespace
} // namespace chart
