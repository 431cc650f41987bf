#include "server/UsageRate.h"

#include <gmock/gmock.h>

#include <limits>

namespace reportd {
namespace {

constexpr LocalTime kMidnight{std::chrono::local_days{std::chrono::year{2026} / 11 / 22}};

ReportRecord Hour(int hour, std::uint64_t value)
{
    return {kMidnight + std::chrono::hours{hour}, kMidnight + std::chrono::hours{hour + 1}, value};
}

TEST(UsageRate, IsRoundedToTenthsOfAPercent)
{
    EXPECT_EQ(UsageRateInTenths(0, 100), 0);
    EXPECT_EQ(UsageRateInTenths(9200, 10000), 920);
    EXPECT_EQ(UsageRateInTenths(92049, 100000), 920);
    EXPECT_EQ(UsageRateInTenths(92051, 100000), 921);
    EXPECT_EQ(UsageRateInTenths(103, 100), 1030);
}

TEST(UsageRate, StandsAbsurdValues)
{
    EXPECT_EQ(UsageRateInTenths(100, 0), std::nullopt);
    EXPECT_EQ(UsageRateInTenths(std::numeric_limits<std::uint64_t>::max(), 1), 1'000'000);
    EXPECT_EQ(UsageRateInTenths(1, std::numeric_limits<std::uint64_t>::max()), 0);
}

TEST(UsageRate, TakesTheActualDemandOfTheHourOrElseTheEstimate)
{
    const auto rates = UsageRatesOf({Hour(0, 500)}, {Hour(0, 900), Hour(1, 900)}, {Hour(0, 1000), Hour(1, 1000)});
    ASSERT_EQ(rates.size(), 2);
    EXPECT_EQ(rates[0].tenths, 500);
    EXPECT_TRUE(rates[0].isMeasured);
    EXPECT_EQ(rates[1].start, kMidnight + std::chrono::hours{1});
    EXPECT_EQ(rates[1].end, kMidnight + std::chrono::hours{2});
    EXPECT_EQ(rates[1].tenths, 900);
    EXPECT_FALSE(rates[1].isMeasured);
}

TEST(UsageRate, NeverMixesHours)
{
    EXPECT_TRUE(UsageRatesOf({Hour(0, 500)}, {Hour(2, 900)}, {Hour(1, 1000)}).empty());
    EXPECT_TRUE(UsageRatesOf({Hour(0, 500)}, {}, {}).empty());
    EXPECT_TRUE(UsageRatesOf({Hour(0, 500)}, {}, {Hour(0, 0)}).empty());
    const ReportRecord half{kMidnight, kMidnight + std::chrono::minutes{30}, 500};
    EXPECT_TRUE(UsageRatesOf({half}, {}, {Hour(0, 1000)}).empty());
}

} // namespace
} // namespace reportd
