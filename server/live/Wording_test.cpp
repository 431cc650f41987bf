#include "server/live/Wording.h"

#include "server/live/Advice.h"
#include "server/live/Intake.h"
#include "server/retrieval/Fetcher.h"
#include "server/TimeText.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

TEST(Wording, TimesHaveTheirZeros)
{
    const LocalTime moment = local_days(year(2026) / 4 / 2) + hours(3) + minutes(7);
    EXPECT_EQ(MomentText(moment), "2026-04-02 03:07");
    EXPECT_EQ(TimeOfDayText(moment), "03:07");
}

TEST(Wording, CompaniesHaveKeys)
{
    EXPECT_EQ(KeyOfCompany(catalogue::kKansai), "kansai");
    EXPECT_EQ(KeyOfCompany(4), "?");
    EXPECT_EQ(SiteNumberOf("kansai"), catalogue::kKansai);
    EXPECT_EQ(SiteNumberOf("Kansai"), std::nullopt);
    EXPECT_EQ(AllCompanyKeys(), "tokyo, tohoku, chubu, kansai, kyushu");
}

TEST(Wording, ColumnsAreAlignedWithoutBlanksAtTheEnds)
{
    EXPECT_EQ(AlignColumns({{"a", "bb", "c"}, {"long", "b"}, {}}), "a     bb  c\nlong  b\n\n");
    EXPECT_EQ(AlignColumns({}), "");
}

TEST(Wording, TextsOfStrangersAreShortAndWithoutControlCharacters)
{
    EXPECT_EQ(Shown("a\x1B[31m\n\x7F"), "a?[31m??");
    EXPECT_EQ(Shown(std::string(300, 'x')).size(), 200U);
}

TEST(Wording, NamesTellTheirDay)
{
    EXPECT_EQ(DayOfName("juyo_02_20260418.csv"), year(2026) / 4 / 18);
    EXPECT_EQ(DayOfName("20260418_power_usage.csv"), year(2026) / 4 / 18);
    EXPECT_EQ(DayOfName("20261318-20260229-20240229"), year(2024) / 2 / 29);
    for (const std::string name : {"", "2026041", "202604188", "19990101", "20260431", "power_usage.csv"}) {
        EXPECT_EQ(DayOfName(name), std::nullopt) << name;
    }
}

TEST(Advice, EveryFailureHasAMeaningAndAnAdviceOfItsOwn)
{
    for (const std::string failure :
         {"url", "dns", "connect", "tls", "timeout", "too_big", "redirect", "broken", "interrupted", "authority"}) {
        const FetchAnswer answer{.failure = failure, .detail = "a\nb"};
        EXPECT_THAT(ProblemOf(answer).value_or(""),
                    testing::AllOf(testing::EndsWith(" (a?b)"), testing::Not(testing::StartsWith("no answer"))))
            << failure;
        EXPECT_NE(AdviceOn(answer), "") << failure;
    }
    EXPECT_EQ(ProblemOf({.failure = "something new"}), "no answer");
}

TEST(Advice, OnlyAFileIsNoProblem)
{
    EXPECT_EQ(ProblemOf({.status = 200}), std::nullopt);
    for (const long status : {204L, 304L, 403L, 404L, 410L, 429L, 500L, 503L}) {
        EXPECT_EQ(ProblemOf({.status = status}), "its server answered with status " + std::to_string(status));
        EXPECT_NE(AdviceOn(FetchAnswer{.status = status}), "") << status;
    }
    EXPECT_THAT(AdviceOn(FetchAnswer{.status = 429}), testing::HasSubstr("interval_minutes"));
    EXPECT_THAT(AdviceOn(FetchAnswer{.status = 404}), testing::HasSubstr("today_url"));
    EXPECT_THAT(AdviceOn(FetchAnswer{.status = 503}), testing::HasSubstr("later"));
}

TEST(Advice, RefusedFilesLeadToWhatCanBeDone)
{
    EXPECT_THAT(AdviceOn(Refusal::kFrozen), testing::HasSubstr("today_url"));
    EXPECT_THAT(AdviceOn(Refusal::kHtml), testing::HasSubstr("today_url"));
    EXPECT_THAT(AdviceOn(Refusal::kFutureStamp), testing::HasSubstr("clock"));
    EXPECT_THAT(AdviceOn(Refusal::kUnknownLayout), testing::HasSubstr("headings"));
    EXPECT_THAT(AdviceOn(Refusal::kTruncated), testing::HasSubstr("again"));
    EXPECT_THAT(AdviceOn(Refusal::kNoStamp), testing::HasSubstr("newer"));
}

} // namespace
} // namespace reportd
