#include "server/page/DayView.h"

#include "testing/ScriptedSource.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

constexpr year_month_day kDay = year{2026} / 11 / 22;
constexpr LocalTime kMidnight{std::chrono::local_days{kDay}};
constexpr minutes kStaleAfter{15};

ReportRecord Hour(int hour, std::uint64_t value)
{
    return {kMidnight + hours{hour}, kMidnight + hours{hour + 1}, value};
}

ReportRecord Instant(minutes minute, std::uint64_t value)
{
    return {kMidnight + minute, kMidnight + minute + minutes{5}, value};
}

TEST(DayView, HoldsEverySeriesOfTheDay)
{
    testing_support::CScriptedSource source;
    std::uint64_t value = 100;
    for (const SeriesInfo& info : kAllSeries) {
        source.Add(catalogue::kTokyo, info.series, kDay, {kMidnight, kMidnight + info.length, value++});
    }
    source.SetState(catalogue::kTokyo, kDay, {.revision = 7});
    const DayView day = LoadDay(source, catalogue::kTokyo, kDay, kMidnight);
    EXPECT_EQ(day.instant, (std::vector{Instant(minutes{0}, 100)}));
    EXPECT_EQ(day.actual, (std::vector{Hour(0, 101)}));
    EXPECT_EQ(day.estimated, (std::vector{Hour(0, 102)}));
    EXPECT_EQ(day.peakSupply, Hour(0, 103));
    EXPECT_EQ(day.peakDemand, Hour(0, 104));
    EXPECT_EQ(day.supply, (std::vector{Hour(0, 105)}));
    EXPECT_EQ(day.solar, (std::vector{Instant(minutes{0}, 106)}));
    EXPECT_EQ(day.wind, (std::vector{Instant(minutes{0}, 107)}));
    EXPECT_EQ(day.rates.size(), 1);
    EXPECT_EQ(day.state.revision, 7);
    EXPECT_TRUE(day.HasFigures());
}

TEST(DayView, IsEmptyWithoutFigures)
{
    testing_support::CScriptedSource source;
    EXPECT_FALSE(LoadDay(source, catalogue::kTokyo, kDay, kMidnight).HasFigures());
    source.Add(catalogue::kTokyo, Series::kWind, kDay, Instant(minutes{0}, 1));
    EXPECT_TRUE(LoadDay(source, catalogue::kTokyo, kDay, kMidnight).HasFigures());
    EXPECT_FALSE(LoadDay(source, catalogue::kTokyo, kDay, kMidnight).HasCurves());
    source.Add(catalogue::kTokyo, Series::kSupply, kDay, Hour(0, 1));
    EXPECT_TRUE(LoadDay(source, catalogue::kTokyo, kDay, kMidnight).HasCurves());
}

TEST(DayView, LeavesOutWhatLiesOutsideTheDay)
{
    testing_support::CScriptedSource source;
    for (const int hour : {-1, 0, 23, 24}) {
        source.Add(catalogue::kTokyo, Series::kActualUsage, kDay, Hour(hour, 5));
    }
    source.Add(catalogue::kTokyo, Series::kActualUsage, kDay, {kMidnight + hours{5}, kMidnight + hours{5}, 9});
    const DayView day = LoadDay(source, catalogue::kTokyo, kDay, kMidnight);
    EXPECT_EQ(day.actual, (std::vector{Hour(0, 5), Hour(23, 5)}));
}

TEST(DayView, TakesTheNewestReadingWithTheSupplyOfItsHour)
{
    const DayView day{.instant = {Instant(minutes{60}, 400), Instant(minutes{125}, 500)},
                      .actual = {Hour(0, 300), Hour(1, 450)},
                      .supply = {Hour(1, 800), Hour(2, 1000), Hour(3, 2000)}};
    const std::optional<Reading> reading = NewestReading(day);
    ASSERT_TRUE(reading);
    EXPECT_TRUE(reading->isInstant);
    EXPECT_EQ(reading->record.value, 500);
    EXPECT_EQ(reading->Moment(), kMidnight + minutes{125});
    EXPECT_EQ(reading->supply, Hour(2, 1000));
    EXPECT_EQ(reading->tenths, 500);
}

TEST(DayView, TakesTheMeanOfAnHourWithoutMeasurementsSince)
{
    const DayView day{.instant = {Instant(minutes{5}, 400)}, .actual = {Hour(0, 300), Hour(1, 450)}};
    const std::optional<Reading> reading = NewestReading(day);
    ASSERT_TRUE(reading);
    EXPECT_FALSE(reading->isInstant);
    EXPECT_EQ(reading->Moment(), kMidnight + hours{2});
    EXPECT_EQ(reading->tenths, std::nullopt);
}

TEST(DayView, HasNoReadingBeforeTheFirstMeasurement)
{
    EXPECT_EQ(NewestReading({.supply = {Hour(0, 1)}}), std::nullopt);
}

TEST(DayView, ComparesPeaksOfTheSameHourOnly)
{
    EXPECT_EQ(PeakRate({.peakDemand = Hour(17, 900), .peakSupply = Hour(17, 1000)}), 900);
    EXPECT_EQ(PeakRate({.peakDemand = Hour(17, 900), .peakSupply = Hour(18, 1000)}), std::nullopt);
    EXPECT_EQ(PeakRate({.peakDemand = Hour(17, 900)}), std::nullopt);
    EXPECT_EQ(PeakRate({.peakSupply = Hour(17, 900)}), std::nullopt);
    EXPECT_EQ(PeakRate({}), std::nullopt);
}

DayView DayObserved(std::optional<LocalTime> moment)
{
    return {.date = kDay, .actual = {Hour(0, 1)}, .state = {.revision = 1, .observed = moment}};
}

TEST(DayView, IsStaleWhenItWasNotConfirmedForLong)
{
    const LocalTime noon = kMidnight + hours{12};
    EXPECT_EQ(FreshnessOf(DayObserved(noon - kStaleAfter), false, noon, kStaleAfter), Freshness::kCurrent);
    EXPECT_EQ(FreshnessOf(DayObserved(noon - kStaleAfter - std::chrono::seconds{1}), false, noon, kStaleAfter),
              Freshness::kStale);
    EXPECT_EQ(FreshnessOf(DayObserved(noon + hours{1}), false, noon, kStaleAfter), Freshness::kCurrent);
    EXPECT_EQ(FreshnessOf(DayObserved({}), false, noon, kStaleAfter), Freshness::kStale);
    EXPECT_EQ(FreshnessOf({.date = kDay}, false, noon, kStaleAfter), Freshness::kMissing);
    EXPECT_EQ(FreshnessOf(DayObserved({}), true, noon, kStaleAfter), Freshness::kSample);
}

TEST(DayView, StaysCurrentAfterItsEnd)
{
    const LocalTime end = kMidnight + days{1};
    EXPECT_EQ(FreshnessOf(DayObserved(end - minutes{10}), false, end + days{300}, kStaleAfter), Freshness::kCurrent);
    EXPECT_EQ(FreshnessOf(DayObserved(end + minutes{10}), false, end + days{300}, kStaleAfter), Freshness::kCurrent);
    EXPECT_EQ(FreshnessOf(DayObserved(end - hours{3}), false, end + days{300}, kStaleAfter), Freshness::kStale);
}

TEST(DayView, PassesOnThatTheSourceFails)
{
    testing_support::CScriptedSource source;
    source.Break();
    EXPECT_THROW(LoadDay(source, catalogue::kTokyo, kDay, kMidnight), std::runtime_error);
}

} // namespace
} // namespace reportd
