#include "chart/DayChartPage.h"

#include <gmock/gmock.h>

namespace chart {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const DayCurves kCurves = {.measured = {{0, 5, 500}, {5, 5, 1000}}};

TEST(DayChartPage, HoldsTheDrawingOfThePages)
{
    const DayLabels labels = {.title = "Tokyo", .description = "Demand", .unit = "MW", .measured = "demand"};
    const std::string page = DayChartPage(kCurves, labels);
    EXPECT_THAT(page, testing::StartsWith("<!DOCTYPE html>\n<html lang=\"en\">"));
    EXPECT_THAT(page, AllOf(HasSubstr("<title>Tokyo</title>"), HasSubstr("<h1>Tokyo</h1>"),
                            HasSubstr("<figcaption>Demand</figcaption>"),
                            HasSubstr(DayChartSvg(kCurves, labels, {.width = 960, .height = 400}))));
    EXPECT_THAT(page, testing::EndsWith("</html>\n"));
}

TEST(DayChartPage, NeedsNothingElseAndKnowsLightAndDark)
{
    const std::string page = DayChartPage(kCurves, {.title = "Tokyo", .measured = "demand"});
    EXPECT_THAT(page, AllOf(Not(HasSubstr("href")), Not(HasSubstr("src=")), Not(HasSubstr("url(")),
                            Not(HasSubstr("<script")), Not(HasSubstr("@import"))));
    EXPECT_THAT(page, AllOf(HasSubstr("content=\"light dark\""), HasSubstr("prefers-color-scheme: dark")));
}

TEST(DayChartPage, EscapesItsTexts)
{
    const std::string page = DayChartPage({}, {.title = "</title><b>", .description = "a & b"});
    EXPECT_THAT(page, AllOf(Not(HasSubstr("<b>")), HasSubstr("<h1>&lt;/title&gt;&lt;b&gt;</h1>"),
                            HasSubstr("<figcaption>a &amp; b</figcaption>")));
}

} // namespace
} // namespace chart
