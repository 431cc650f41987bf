#include "server/page/Words.h"

#include <gmock/gmock.h>

#include <limits>

namespace reportd {
namespace {

constexpr LocalTime kMidnight{local_days{year{2026} / 11 / 22}};

TEST(Words, CallUsageRatesByTheirBand)
{
    EXPECT_EQ(BandOf(0), UsageBand::kStable);
    EXPECT_EQ(BandOf(920), UsageBand::kStable);
    EXPECT_EQ(BandOf(921), UsageBand::kLittleTight);
    EXPECT_EQ(BandOf(950), UsageBand::kLittleTight);
    EXPECT_EQ(BandOf(951), UsageBand::kTight);
    EXPECT_EQ(BandOf(970), UsageBand::kTight);
    EXPECT_EQ(BandOf(971), UsageBand::kVeryTight);
    EXPECT_EQ(BandOf(1030), UsageBand::kVeryTight);
}

TEST(Words, NameBandsInBothLanguages)
{
    EXPECT_EQ(NameOf(UsageBand::kStable, Language::kEnglish), "Stable");
    EXPECT_EQ(NameOf(UsageBand::kLittleTight, Language::kEnglish), "A little tight");
    EXPECT_EQ(NameOf(UsageBand::kTight, Language::kJapanese), "厳しい");
    EXPECT_EQ(NameOf(UsageBand::kVeryTight, Language::kJapanese), "非常に厳しい");
    EXPECT_EQ(StyleOf(UsageBand::kStable), "stable");
    EXPECT_EQ(StyleOf(UsageBand::kLittleTight), "little-tight");
    EXPECT_EQ(StyleOf(UsageBand::kTight), "tight");
    EXPECT_EQ(StyleOf(UsageBand::kVeryTight), "very-tight");
}

TEST(Words, NameEveryCompany)
{
    EXPECT_EQ(CompanyName(catalogue::kTokyo, Language::kJapanese), "東京電力");
    EXPECT_EQ(CompanyName(catalogue::kTohoku, Language::kEnglish), "Tohoku Electric Power");
    EXPECT_EQ(CompanyName(catalogue::kChubu, Language::kJapanese), "中部電力");
    EXPECT_EQ(CompanyName(catalogue::kKansai, Language::kEnglish), "Kansai Electric Power");
    EXPECT_EQ(CompanyName(catalogue::kKyushu, Language::kJapanese), "九州電力");
}

TEST(Words, WriteDates)
{
    EXPECT_EQ(DateText(year{2026} / 11 / 22, Language::kEnglish), "Sunday, 22 November 2026");
    EXPECT_EQ(DateText(year{2026} / 11 / 22, Language::kJapanese), "2026年11月22日（日）");
    EXPECT_EQ(DateText(year{2024} / 2 / 29, Language::kEnglish), "Thursday, 29 February 2024");
    EXPECT_EQ(DateText(year{2026} / 1 / 5, Language::kJapanese), "2026年1月5日（月）");
}

TEST(Words, WriteTimes)
{
    EXPECT_EQ(ClockText(kMidnight), "0:00");
    EXPECT_EQ(ClockText(kMidnight + hours{9} + minutes{5} + seconds{59}), "9:05");
    EXPECT_EQ(ClockText(kMidnight - seconds{1}), "23:59");
    EXPECT_EQ(IntervalText(kMidnight, kMidnight + hours{1}, Language::kEnglish), "0:00–1:00");
    EXPECT_EQ(IntervalText(kMidnight + hours{23}, kMidnight + hours{24}, Language::kJapanese), "23:00～24:00");
}

TEST(Words, WriteValues)
{
    EXPECT_EQ(MegawattText(41230, Language::kEnglish), "41,230 MW");
    EXPECT_EQ(MegawattText(0, Language::kJapanese), "0 MW");
    EXPECT_EQ(NumberText(std::numeric_limits<std::uint64_t>::max()), "9,223,372,036,854,775,807");
    EXPECT_EQ(RateText(873, Language::kEnglish), "87.3 %");
    EXPECT_EQ(RateText(1030, Language::kJapanese), "103.0％");
    EXPECT_EQ(RateNumber(5), "0.5");
}

TEST(Words, WriteAges)
{
    EXPECT_EQ(AgeText(seconds{-300}, Language::kEnglish), "just now");
    EXPECT_EQ(AgeText(seconds{59}, Language::kEnglish), "just now");
    EXPECT_EQ(AgeText(seconds{60}, Language::kEnglish), "1 minute ago");
    EXPECT_EQ(AgeText(seconds{179}, Language::kEnglish), "2 minutes ago");
    EXPECT_EQ(AgeText(seconds{3599}, Language::kEnglish), "59 minutes ago");
    EXPECT_EQ(AgeText(hours{1}, Language::kEnglish), "1 hour ago");
    EXPECT_EQ(AgeText(hours{47}, Language::kEnglish), "47 hours ago");
    EXPECT_EQ(AgeText(days{2}, Language::kEnglish), "2 days ago");
    EXPECT_EQ(AgeText(minutes{7}, Language::kJapanese), "7分前");
    EXPECT_EQ(AgeText(hours{3}, Language::kJapanese), "3時間前");
    EXPECT_EQ(AgeText(days{9}, Language::kJapanese), "9日前");
}

} // namespace
} // namespace reportd
