#include "server/retrieval/UrlPattern.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

constexpr std::chrono::year_month_day kDay{std::chrono::year{2026}, std::chrono::month{4}, std::chrono::day{2}};

TEST(UrlPattern, PutsTheDayInItsPlaces)
{
    EXPECT_EQ(UrlOfDay("https://here/juyo_%Y%m%d.csv", kDay), "https://here/juyo_20260402.csv");
    EXPECT_EQ(UrlOfDay("https://here/%Y/%m_usage.zip", kDay), "https://here/2026/04_usage.zip");
}

TEST(UrlPattern, LeavesEverythingElseAsItIs)
{
    for (const std::string pattern : {"", "%", "https://here/a%20b%y%M%", "https://here/%%"}) {
        EXPECT_EQ(UrlOfDay(pattern, kDay), pattern);
    }
}

TEST(UrlPattern, KnowsADailyAddress)
{
    EXPECT_TRUE(HasDailyUrl("https://here/juyo_%Y%m%d.csv"));
    EXPECT_FALSE(HasDailyUrl("https://here/juyo.csv"));
    EXPECT_FALSE(HasDailyUrl("https://here/%Y%m_usage.zip"));
}

} // namespace
} // namespace reportd
