#include "chart/DayChart.h"

#include <gmock/gmock.h>

#include <limits>

namespace chart {
namespace {

using Lines = std::vector<std::vector<DayPoint>>;

DayCurves CurvesUpTo(std::int64_t megawatts) { return {.measured = {{0, 5, megawatts}}}; }

TEST(DayChart, RoundsItsScaleToStepsOfOneTwoAndFive)
{
    EXPECT_EQ(ScaleOf(CurvesUpTo(1), 5), (ValueScale{1, 1}));
    EXPECT_EQ(ScaleOf(CurvesUpTo(5), 5), (ValueScale{5, 1}));
    EXPECT_EQ(ScaleOf(CurvesUpTo(6), 5), (ValueScale{6, 2}));
    EXPECT_EQ(ScaleOf(CurvesUpTo(11), 5), (ValueScale{15, 5}));
    EXPECT_EQ(ScaleOf(CurvesUpTo(26), 5), (ValueScale{30, 10}));
    EXPECT_EQ(ScaleOf(CurvesUpTo(9999), 5), (ValueScale{10000, 2000}));
    EXPECT_EQ(ScaleOf(CurvesUpTo(48231), 5), (ValueScale{50000, 10000}));
    EXPECT_EQ(ScaleOf(CurvesUpTo(50001), 5), (ValueScale{60000, 20000}));
    EXPECT_EQ(ScaleOf(CurvesUpTo(50001), 1), (ValueScale{100000, 100000}));
}

TEST(DayChart, ScalesToTheHighestOfAllCurves)
{
    EXPECT_EQ(ScaleOf({.yesterday = {{0, 5, 700}}}, 5).highest, 800);
    EXPECT_EQ(ScaleOf({.forecast = {{0, 60, 700}}}, 5).highest, 800);
    EXPECT_EQ(ScaleOf({.supply = {{0, 60, 100}, {60, 60, 700}}}, 5).highest, 800);
    EXPECT_EQ(ScaleOf({.peakDemand = DayValue{600, 60, 700}}, 5).highest, 800);
    EXPECT_EQ(ScaleOf({.measured = {{0, 5, 60}}, .peakSupply = DayValue{600, 60, 700}}, 5).highest, 800);
}

TEST(DayChart, HasAScaleWithoutValues)
{
    EXPECT_EQ(ScaleOf({}, 5), (ValueScale{1000, 200}));
    EXPECT_EQ(ScaleOf(CurvesUpTo(0), 5), (ValueScale{1000, 200}));
    EXPECT_EQ(ScaleOf(CurvesUpTo(-7), 5), (ValueScale{1000, 200}));
}

TEST(DayChart, BoundsAbsurdValues)
{
    EXPECT_EQ(ScaleOf(CurvesUpTo(std::numeric_limits<std::int64_t>::max()), 5), (ValueScale{1000000000, 200000000}));
    EXPECT_EQ(LinesOf({{0, 5, std::numeric_limits<std::int64_t>::max()}, {5, 5, -3}}),
              (Lines{{{0, 1000000000}, {5, 0}}}));
}

TEST(DayChart, JoinsMeasurementsAndBreaksAtGaps)
{
    EXPECT_EQ(LinesOf({{0, 5, 1}, {5, 5, 2}, {15, 5, 3}, {20, 5, 4}}), (Lines{{{0, 1}, {5, 2}}, {{15, 3}, {20, 4}}}));
    EXPECT_EQ(LinesOf({}), Lines{});
}

TEST(DayChart, MakesStepsOfHours)
{
    EXPECT_EQ(LinesOf({{0, 60, 1}, {60, 60, 2}, {180, 60, 3}}),
              (Lines{{{0, 1}, {60, 1}, {60, 2}, {120, 2}}, {{180, 3}, {240, 3}}}));
}

TEST(DayChart, DrawsNothingOutsideTheDay)
{
    EXPECT_EQ(LinesOf({{-60, 60, 1}, {1380, 120, 2}, {1440, 60, 3}}), (Lines{{{1380, 2}, {1440, 2}}}));
    EXPECT_EQ(LinesOf({{60, 0, 1}, {60, -5, 1}, {120, std::numeric_limits<int>::max(), 2}}),
              (Lines{{{120, 2}, {1440, 2}}}));
}

TEST(DayChart, GroupsDigits)
{
    EXPECT_EQ(GroupDigits(0), "0");
    EXPECT_EQ(GroupDigits(999), "999");
    EXPECT_EQ(GroupDigits(1000), "1,000");
    EXPECT_EQ(GroupDigits(41230), "41,230");
    EXPECT_EQ(GroupDigits(1234567), "1,234,567");
    EXPECT_EQ(GroupDigits(-100), "-100");
    EXPECT_EQ(GroupDigits(-1000), "-1,000");
}

} // namespace
} // namespace chart
