#include "server/SampleSource.h"

#include "format/Catalogue.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace reportd {
namespace {

using namespace catalogue;
using namespace std::chrono_literals;
using testing::ElementsAre;

constexpr int kAllCompanies[] = {kTokyo, kTohoku, kChubu, kKansai, kKyushu};
constexpr year_month_day kDay = 2012y / 7 / 2; // a Monday
constexpr LocalTime kNextNoon = local_days{2012y / 7 / 3} + 12h;

TEST(SampleSource, PastDayHas288InstantUsagesBackToBack)
{
    const std::vector<ReportRecord> records = SampleRecords(kTokyo, Series::kInstantUsage, kDay, kNextNoon);
    ASSERT_EQ(records.size(), 288U);
    LocalTime start = local_days{kDay};
    for (const ReportRecord& record : records) {
        EXPECT_EQ(record.start, start);
        EXPECT_EQ(record.end, start + 5min);
        start = record.end;
    }
    EXPECT_EQ(start, local_days{kDay} + 24h);
}

TEST(SampleSource, PastDayHas24ActualAndEstimatedUsagesOfAnHour)
{
    for (const Series kind : {Series::kActualUsage, Series::kEstimatedUsage}) {
        const std::vector<ReportRecord> records = SampleRecords(kKansai, kind, kDay, kNextNoon);
        ASSERT_EQ(records.size(), 24U);
        for (std::size_t hour = 0; hour < 24; ++hour) {
            EXPECT_EQ(records[hour].start, local_days{kDay} + hour * 1h);
            EXPECT_EQ(records[hour].end, records[hour].start + 1h);
        }
    }
}

TEST(SampleSource, DayHasWhatIsKnownByNow)
{
    // Numbers of Tokyo's records: instant, actual, estimated, supply, demand.
    const auto counts = [](year_month_day day, LocalTime now) {
        std::vector<std::size_t> sizes;
        sizes.reserve(5);
        for (const Series kind : {Series::kInstantUsage, Series::kActualUsage, Series::kEstimatedUsage,
                                  Series::kPeakSupply, Series::kPeakDemand}) {
            sizes.push_back(SampleRecords(kTokyo, kind, day, now).size());
        }
        return sizes;
    };
    const LocalTime midnight = local_days{kDay};
    // Later than tomorrow, tomorrow, and today as intervals end.
    EXPECT_THAT(counts(kDay, midnight - 24h - 1s), ElementsAre(0, 0, 0, 0, 0));
    EXPECT_THAT(counts(kDay, midnight - 24h), ElementsAre(0, 0, 24, 1, 1));
    EXPECT_THAT(counts(kDay, midnight + 4min + 59s), ElementsAre(0, 0, 24, 1, 1));
    EXPECT_THAT(counts(kDay, midnight + 5min), ElementsAre(1, 0, 24, 1, 1));
    EXPECT_THAT(counts(kDay, midnight + 59min + 59s), ElementsAre(11, 0, 24, 1, 1));
    EXPECT_THAT(counts(kDay, midnight + 1h), ElementsAre(12, 1, 24, 1, 1));
    EXPECT_THAT(counts(kDay, midnight + 13h + 30min), ElementsAre(162, 13, 24, 1, 1));
    EXPECT_THAT(counts(kDay, midnight + 24h), ElementsAre(288, 24, 24, 1, 1));
    // The first day, and the one before it.
    EXPECT_THAT(counts(2011y / 1 / 1, kNextNoon), ElementsAre(288, 24, 24, 1, 1));
    EXPECT_THAT(counts(2010y / 12 / 31, kNextNoon), ElementsAre(0, 0, 0, 0, 0));
}

TEST(SampleSource, OtherCompaniesAndSeriesHaveNoData)
{
    EXPECT_TRUE(SampleRecords(4, Series::kEstimatedUsage, kDay, kNextNoon).empty());
    EXPECT_TRUE(SampleRecords(kTokyo, Series::kSolar, kDay, kNextNoon).empty());
    EXPECT_TRUE(SampleRecords(kTokyo, Series::kWind, kDay, kNextNoon).empty());
}

TEST(SampleSource, EveryHourHasItsSupply)
{
    const std::vector<ReportRecord> demand = SampleRecords(kTokyo, Series::kEstimatedUsage, kDay, kNextNoon);
    const std::vector<ReportRecord> supply = SampleRecords(kTokyo, Series::kSupply, kDay, kNextNoon);
    ASSERT_EQ(supply.size(), demand.size());
    for (std::size_t hour = 0; hour < supply.size(); ++hour) {
        EXPECT_EQ(supply[hour].start, demand[hour].start);
        EXPECT_EQ(supply[hour].end, demand[hour].end);
        EXPECT_GT(supply[hour].value * 100, demand[hour].value * 107);
        EXPECT_LT(supply[hour].value * 100, demand[hour].value * 115);
    }
    EXPECT_THAT(supply, testing::Contains(SampleRecords(kTokyo, Series::kPeakSupply, kDay, kNextNoon).front()));
}

TEST(SampleSource, RevisionChangesWithTheFigures)
{
    CSampleSource source;
    const local_days midnight{kDay};
    const auto revision = [&](LocalTime now) { return source.State(kTokyo, kDay, now).revision; };
    EXPECT_EQ(revision(midnight - 24h - 1s), 0U);
    EXPECT_NE(revision(midnight - 24h), 0U);
    EXPECT_EQ(revision(midnight + 4min + 59s), revision(midnight - 24h));
    EXPECT_NE(revision(midnight + 5min), revision(midnight + 4min + 59s));
    EXPECT_NE(revision(midnight + 24h), revision(midnight + 24h - 1s));
    EXPECT_EQ(revision(midnight + 48h), revision(midnight + 24h));
    EXPECT_EQ(source.State(4, kDay, kNextNoon).revision, 0U);
}

TEST(SampleSource, SourceReadsTheRecordsAsOfAMoment)
{
    CSampleSource source;
    const LocalTime morning = local_days{kDay} + 9h;
    EXPECT_EQ(source.Read(kTokyo, Series::kInstantUsage, kDay, kNextNoon, {}),
              SampleRecords(kTokyo, Series::kInstantUsage, kDay, kNextNoon));
    EXPECT_EQ(source.Read(kTokyo, Series::kInstantUsage, kDay, kNextNoon, morning),
              SampleRecords(kTokyo, Series::kInstantUsage, kDay, morning));
}

TEST(SampleSource, ValuesDependOnTheDateAskedNotOnNow)
{
    for (const int company : kAllCompanies) {
        const std::vector<ReportRecord> early =
            SampleRecords(company, Series::kInstantUsage, kDay, local_days{kDay} + 10h);
        const std::vector<ReportRecord> later = SampleRecords(company, Series::kInstantUsage, kDay, kNextNoon);
        ASSERT_EQ(early.size(), 120U);
        EXPECT_TRUE(std::equal(early.begin(), early.end(), later.begin()));
        EXPECT_NE(later, SampleRecords(company, Series::kInstantUsage, 2012y / 7 / 1, kNextNoon));
    }
}

TEST(SampleSource, ValuesAreTheSameOnEverySystem)
{
    const auto first = [](int company, Series kind) {
        return SampleRecords(company, kind, kDay, kNextNoon).front().value;
    };
    EXPECT_EQ(first(kTokyo, Series::kEstimatedUsage), 31680U);
    EXPECT_EQ(first(kTokyo, Series::kInstantUsage), 32248U);
    EXPECT_EQ(first(kTohoku, Series::kActualUsage), 8578U);
    EXPECT_EQ(first(kChubu, Series::kPeakDemand), 24161U);
    EXPECT_EQ(first(kKyushu, Series::kPeakSupply), 16615U);
}

TEST(SampleSource, ValuesArePlausibleAllYearRound)
{
    const LocalTime now = local_days{2013y / 1 / 1};
    for (const int company : kAllCompanies) {
        for (LocalTime midnight = local_days{2012y / 1 / 1}; midnight < now; midnight += 13 * 24h) {
            const year_month_day day{std::chrono::floor<std::chrono::days>(midnight)};
            const std::uint64_t demand = SampleRecords(company, Series::kPeakDemand, day, now).front().value;
            const std::uint64_t supply = SampleRecords(company, Series::kPeakSupply, day, now).front().value;
            EXPECT_GT(supply * 100, demand * 107);
            EXPECT_LT(supply * 100, demand * 115);
            for (const Series kind : {Series::kInstantUsage, Series::kActualUsage, Series::kEstimatedUsage}) {
                for (const ReportRecord& record : SampleRecords(company, kind, day, now)) {
                    EXPECT_GT(record.value * 100, demand * 55);
                    EXPECT_LT(record.value, supply);
                }
            }
        }
    }
}

TEST(SampleSource, PeakDemandIsTheHighestEstimatedHour)
{
    const std::vector<ReportRecord> hours = SampleRecords(kChubu, Series::kEstimatedUsage, kDay, kNextNoon);
    const ReportRecord demand = SampleRecords(kChubu, Series::kPeakDemand, kDay, kNextNoon).front();
    const ReportRecord supply = SampleRecords(kChubu, Series::kPeakSupply, kDay, kNextNoon).front();
    EXPECT_THAT(hours, testing::Contains(demand));
    EXPECT_THAT(hours, testing::Each(testing::Field(&ReportRecord::value, testing::Le(demand.value))));
    EXPECT_EQ(supply.start, demand.start);
    EXPECT_EQ(supply.end, demand.end);
}

TEST(SampleSource, ActualUsageIsTheMeanOfTheHoursInstantUsages)
{
    const std::vector<ReportRecord> instants = SampleRecords(kKyushu, Series::kInstantUsage, kDay, kNextNoon);
    const std::vector<ReportRecord> hours = SampleRecords(kKyushu, Series::kActualUsage, kDay, kNextNoon);
    std::uint64_t sum = 0;
    for (std::size_t i = 9 * 12; i < 10 * 12; ++i) {
        sum += instants[i].value;
    }
    EXPECT_EQ(hours[9].value, sum / 12);
}

TEST(SampleSource, WeekendsUseLess)
{
    const LocalTime now = local_days{2012y / 7 / 10};
    const auto demand = [&](year_month_day day) {
        return SampleRecords(kTokyo, Series::kPeakDemand, day, now).front().value;
    };
    EXPECT_LT(demand(2012y / 7 / 7), demand(2012y / 7 / 6)); // Saturday, Friday
    EXPECT_LT(demand(2012y / 7 / 8), demand(2012y / 7 / 7)); // Sunday
}

} // namespace
} // namespace reportd
