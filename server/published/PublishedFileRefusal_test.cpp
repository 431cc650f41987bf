// What is refused, and why.
#include "server/published/PublishedFile.h"

#include "testing/published/Generator.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <optional>
#include <set>

namespace reportd {
namespace {

using namespace std::chrono_literals;
using namespace testing_support;
using testing::HasSubstr;
using testing::StartsWith;

constexpr year_month_day kDay = 2026y / 4 / 20; // a Monday
constexpr LocalTime kMidnight{local_days{kDay}};
constexpr LocalTime kNoon = kMidnight + 13h + 7min;

// Why these bytes are refused; none when they are not.
struct Reason {
    std::optional<Refusal> refusal;
    std::string why;
};
Reason ReasonOf(const std::string& bytes)
{
    try {
        ParsePublishedFile(bytes, {});
    } catch (const CRefusedFile& refused) {
        return {refused.Reason(), refused.what()};
    }
    return {};
}

// The same for a text (UTF-8) with one change.
Reason ReasonWith(const std::string& from, const std::string& to, Layout layout = Layout::kTokyoD1)
{
    return ReasonOf(AsPublished(Changed(PublishedText(layout, kDay, kNoon), from, to)));
}

TEST(Refusals, HaveKeysOfTheirOwnForMetricsAndFileNames)
{
    std::set<std::string_view> keys;
    for (int reason = 0; reason <= static_cast<int>(Refusal::kImplausibleValue); ++reason) {
        const std::string_view key = KeyOf(static_cast<Refusal>(reason));
        EXPECT_EQ(key.find_first_not_of("abcdefghijklmnopqrstuvwxyz_"), std::string_view::npos) << key;
        keys.insert(key);
    }
    EXPECT_EQ(keys.size(), 11U);
    EXPECT_FALSE(keys.contains(""));
    EXPECT_EQ(KeyOf(Refusal::kHtml), "html");
    EXPECT_EQ(KeyOf(Refusal::kFrozen), "frozen");
}

class Damages : public testing::TestWithParam<Layout> {};

INSTANTIATE_TEST_SUITE_P(All, Damages, testing::ValuesIn(kAllLayouts),
                         [](const auto& info) { return NameOf(info.param); });

TEST_P(Damages, AreRefusedInEveryLayout)
{
    const std::pair<Damage, Refusal> expected[] = {
        {Damage::kEmpty, Refusal::kEmpty},
        {Damage::kHtml, Refusal::kHtml},
        {Damage::kTruncated, Refusal::kTruncated},
        {Damage::kNegative, Refusal::kImplausibleValue},
        {Damage::kAbsurd, Refusal::kImplausibleValue},
        {Damage::kNotANumber, Refusal::kImplausibleValue},
        {Damage::kMalformedTime, Refusal::kMalformedTime},
        {Damage::kUnknownLayout, Refusal::kUnknownLayout},
    };
    for (const auto& [damage, refusal] : expected) {
        const std::string bytes = PublishedCsv(GetParam(), kDay, kNoon, {.damage = damage, .cutAt = 5000});
        EXPECT_EQ(ReasonOf(bytes).refusal, refusal) << static_cast<int>(damage);
    }
}

TEST_P(Damages, OfTimeAreRefusedByTheDayAndTheClock)
{
    const std::pair<Damage, Refusal> expected[] = {
        {Damage::kOtherDay, Refusal::kOtherDay},
        {Damage::kFrozen, Refusal::kFrozen},
        {Damage::kFutureStamp, Refusal::kFutureStamp},
    };
    for (const auto& [damage, refusal] : expected) {
        const PublishedFile file = ParsePublishedFile(PublishedCsv(GetParam(), kDay, kNoon, {.damage = damage}), {});
        try {
            CheckTimeliness(file, kDay, kNoon, 2h);
            ADD_FAILURE() << static_cast<int>(damage);
        } catch (const CRefusedFile& refused) {
            EXPECT_EQ(refused.Reason(), refusal);
        }
    }
}

TEST(Refusals, OfBlanksOnlyIsEmpty)
{
    EXPECT_EQ(ReasonOf("").refusal, Refusal::kEmpty);
    EXPECT_EQ(ReasonOf(" \t\r\n\r\n").refusal, Refusal::kEmpty);
}

TEST(Refusals, OfAWebPageInAnyEncoding)
{
    for (const char* page : {"<html>", "\r\n <!DOCTYPE html>\r\n", "\xEF\xBB\xBF<?xml version=\"1.0\"?>",
                             "<html><title>\xA5\xE1\xA5\xF3\xA5\xC6\xFF</title>"}) {
        EXPECT_EQ(ReasonOf(page).refusal, Refusal::kHtml) << page;
    }
}

TEST(Refusals, OfBytesThatAreNoText)
{
    const std::string bytes = PublishedCsv(Layout::kTokyoD1, kDay, kNoon);
    const auto with = [&bytes](const std::string& piece) { return ReasonOf(std::string(bytes).insert(40, piece)); };
    EXPECT_EQ(with(std::string(1, '\0')).refusal, Refusal::kNotText);
    EXPECT_EQ(with("\x1B[2J").refusal, Refusal::kNotText);
    EXPECT_EQ(with("\x7F").refusal, Refusal::kNotText);
    EXPECT_EQ(with("\xFF\xFF").refusal, Refusal::kNotText);
    EXPECT_EQ(ReasonOf("\x1F\x8B\x08" + bytes).refusal, Refusal::kNotText); // still compressed
    EXPECT_EQ(ReasonOf(bytes + "\x96").refusal, Refusal::kNotText);         // half a character
    // A control character that UTF-8 says with two bytes.
    EXPECT_EQ(ReasonOf("2026/4/20 13:07 UPDATE\n\xC2\x9B"
                       "2J\n")
                  .refusal,
              Refusal::kNotText);
}

TEST(Refusals, OfAMixtureOfEncodings)
{
    const std::string bytes = PublishedCsv(Layout::kTokyoD1, kDay, kNoon);
    EXPECT_EQ(ReasonOf(bytes + "\xE9\x9B\xBB\xE5\x8A\x9B\n").refusal, Refusal::kNotText);
}

TEST(Refusals, OfAFileWithoutItsStamp)
{
    for (const char* first : {"2026/4/20 13:07", "UPDATE", "2026/4/20 UPDATE", "2026/4/20 13:07 UPDATED",
                              "\n2026/4/20 13:07 UPDATE", ",,,", "{\"error\":404}", "Not Found"}) {
        EXPECT_EQ(ReasonWith("2026/4/20 13:07 UPDATE", first).refusal, Refusal::kNoStamp) << first;
    }
    for (const char* first : {"2026/2/30 13:07 UPDATE", "2026/4/20 24:00 UPDATE", "4/20 13:07 UPDATE"}) {
        EXPECT_EQ(ReasonWith("2026/4/20 13:07 UPDATE", first).refusal, Refusal::kMalformedTime) << first;
    }
}

TEST(Refusals, OfAFileThatEndsTooEarly)
{
    const std::string text = PublishedText(Layout::kTokyoD1, kDay, kNoon);
    const auto cutAt = [&text](const std::string& end) {
        return ReasonOf(AsPublished(text.substr(0, text.find(end))));
    };
    EXPECT_EQ(cutAt("2026/4/20,0:00").refusal, Refusal::kTruncated);  // a heading without rows
    EXPECT_EQ(cutAt("2026/4/20,23:00").refusal, Refusal::kTruncated); // 23 rows
    EXPECT_THAT(cutAt("2026/4/20,23:00").why, HasSubstr("no row of 23:00"));
    EXPECT_EQ(cutAt("2026/4/20,23:55").refusal, Refusal::kTruncated);
    EXPECT_EQ(cutAt("\n\n予想最大電力").refusal, Refusal::kTruncated); // within a line
    EXPECT_EQ(cutAt("予想最大電力").refusal, Refusal::kTruncated);     // before any table
    EXPECT_EQ(ReasonOf("2026/4/20 13:07 UPDATE\r\n").refusal, Refusal::kTruncated);
    const std::string heading = "予想最大電力(万kW),時間帯,予想最大電力情報更新日,予想最大電力情報更新時刻\n";
    EXPECT_EQ(ReasonOf(AsPublished(text + heading)).refusal, Refusal::kTruncated); // a block without its row
    EXPECT_EQ(ReasonOf(AsPublished(text.substr(0, text.rfind(",,,\n")) + ",,,")).refusal, Refusal::kTruncated);
}

TEST(Refusals, OfATableWithAGapInIt)
{
    EXPECT_EQ(ReasonWith("\n2026/4/20,5:00,", "\n\n2026/4/20,5:00,").refusal, Refusal::kTruncated);
    EXPECT_EQ(ReasonWith("\n2026/4/20,5:00,", "\n2026/4/20,6:00,").refusal, Refusal::kMalformedTime);
    EXPECT_EQ(ReasonWith("\n2026/4/20,5:00,", "\n\nDATE,TIME,予測値(万kW)\n2026/4/20,5:00,").refusal,
              Refusal::kTruncated);
    EXPECT_EQ(ReasonWith("\n2026/4/20,5:00,", "\nDATE,TIME,予測値(万kW)\n2026/4/20,5:00,").refusal,
              Refusal::kTruncated);
}

TEST(Refusals, OfRowsOutOfTurn)
{
    for (const char* row : {"\n2026/4/20,4:00,3000,3000,80,4000\n2026/4/20,5:00,", "\n2026/4/20,5:05,",
                            "\n2026/4/20,25:00,", "\n2026/4/20,5,", "\n2026/4/20,,", "\n2026/4/21,5:00,",
                            "\n2026/4/31,5:00,", "\n,5:00,", "\n速報\n2026/4/20,5:00,", "\n2026/4/20 5:00,"}) {
        EXPECT_EQ(ReasonWith("\n2026/4/20,5:00,", row).refusal, Refusal::kMalformedTime) << row;
    }
    for (const char* row : {"\n2026/4/20,0:05,", "\n2026/4/31,0:00,", "\n2026/4/20,24:00,"}) {
        EXPECT_EQ(ReasonWith("\n2026/4/20,0:00,", row).refusal, Refusal::kMalformedTime) << row;
    }
    const std::string text = PublishedText(Layout::kTokyoD1, kDay, kNoon);
    EXPECT_EQ(ReasonOf(AsPublished(Changed(text, "\n\n最大使用率", "\n2026/4/20,24:00,0,1\n\n最大使用率"))).refusal,
              Refusal::kMalformedTime);
    EXPECT_EQ(ReasonOf(AsPublished(Changed(text, "\n\n最大使用率", "\n2026/4/20,23:00,0,1\n\n最大使用率"))).refusal,
              Refusal::kMalformedTime);
}

TEST(Refusals, OfTablesOfTwoDays)
{
    const std::string text = PublishedText(Layout::kTokyoD1, kDay, kNoon);
    const std::size_t second = text.rfind("DATE,TIME,");
    const std::string yesterday = PublishedText(Layout::kTokyoD1, 2026y / 4 / 19, kNoon);
    const std::string other = text.substr(0, second) + yesterday.substr(yesterday.rfind("DATE,TIME,"));
    EXPECT_EQ(ReasonOf(AsPublished(other)).refusal, Refusal::kMalformedTime);
    EXPECT_THAT(ReasonOf(AsPublished(other)).why, HasSubstr("two days"));
}

TEST(Refusals, OfATableThatStandsTwice)
{
    const std::string text = PublishedText(Layout::kTokyoD1, kDay, kNoon);
    EXPECT_EQ(ReasonOf(AsPublished(text + text.substr(text.rfind("DATE,TIME,")))).refusal, Refusal::kUnknownLayout);
}

TEST(Refusals, OfColumnsThatMeanTwoThings)
{
    const std::string hourly = "DATE,TIME,当日実績(万kW),予測値(万kW),使用率(%),供給力(万kW)";
    EXPECT_EQ(ReasonWith(hourly, "DATE,TIME,当日実績(万kW),予測値(万kW),予想値(万kW),供給力(万kW)").refusal,
              Refusal::kUnknownLayout);
    EXPECT_EQ(ReasonWith(hourly, "DATE,TIME,当日実績(万kW),当日実績(5分間隔値)(万kW),使用率(%),供給力(万kW)").refusal,
              Refusal::kUnknownLayout);
    EXPECT_EQ(ReasonWith("予想最大電力(万kW),時間帯", "予想最大電力(万kW),時間帯,ピーク時供給力(万kW)").refusal,
              Refusal::kUnknownLayout);
}

TEST(Refusals, OfAnotherUnit)
{
    std::string text = PublishedText(Layout::kTokyoD1, kDay, kNoon);
    for (std::size_t at = text.find("万kW"); at != std::string::npos; at = text.find("万kW")) {
        text.replace(at, std::string("万kW").size(), "MW");
    }
    EXPECT_EQ(ReasonOf(AsPublished(text)).refusal, Refusal::kUnknownLayout);
}

TEST(Refusals, OfAPeakWithTwoValues)
{
    const std::string text = PublishedText(Layout::kTokyoD1, kDay, kNoon);
    const std::string block = "予想最大電力(万kW),時間帯\n2850,9:00～10:00\n\n";
    EXPECT_EQ(ReasonOf(AsPublished(text + block)).refusal, Refusal::kUnknownLayout);
}

TEST(Refusals, OfASlotThatIsNoHour)
{
    const std::string heading =
        "ピーク時供給力(万kW),時間帯,供給力情報更新日,供給力情報更新時刻,ピーク時予備率(%),ピーク時使用率(%)\n";
    for (const char* row :
         {"3602,13:00～15:00", "3602,13:30～14:30", "3602,", "3602", "3602,13時", "3,602,13:00～14:00"}) {
        const Reason reason = ReasonWith(heading, heading + row + "\n");
        EXPECT_EQ(reason.refusal, Refusal::kMalformedTime) << row;
        EXPECT_THAT(reason.why, StartsWith("line 3: "));
    }
    EXPECT_EQ(ReasonWith(heading, heading + "未定,13:00～14:00\n").refusal, Refusal::kImplausibleValue);
    EXPECT_EQ(ReasonWith(heading, heading + "-3602,13:00～14:00\n").refusal, Refusal::kImplausibleValue);
    EXPECT_EQ(ReasonWith(heading, heading + "未定\n\n").refusal, Refusal::kTruncated);
}

// A value in the hourly table's row of 7:00, whose cells are replaced.
Reason ReasonWithCells(const std::string& cells)
{
    const std::string text = PublishedText(Layout::kTokyoD1, kDay, kNoon);
    const std::size_t row = text.find("2026/4/20,7:00,");
    return ReasonOf(AsPublished(text.substr(0, row) + "2026/4/20,7:00," + cells + text.substr(text.find('\n', row))));
}

TEST(Refusals, OfValuesThatNoGridCarries)
{
    EXPECT_FALSE(ReasonWithCells("10000,10000,100,10000").refusal);
    EXPECT_FALSE(ReasonWithCells("3000,3000,-x-,4000").refusal); // the rate is not read
    for (const char* cells : {"10001,3000,80,4000", "3000,10001,80,4000", "3000,3000,80,10001", "-1,3000,80,4000",
                              "3000,3000.5,80,4000", "3000,*,80,4000", "3000,+3000,80,4000",
                              "3000,99999999999999999999,80,4000", "3000,三千,80,4000", "\"3000\",3000,80,4000"}) {
        EXPECT_EQ(ReasonWithCells(cells).refusal, Refusal::kImplausibleValue) << cells;
    }
}

TEST(Refusals, OfThousandsWithSeparators)
{
    EXPECT_EQ(ReasonWithCells("3,000,3,000,80,4,000").refusal, Refusal::kUnknownLayout);
    EXPECT_EQ(ReasonWithCells("3000,3000,80,4000,1").refusal, Refusal::kUnknownLayout);
    EXPECT_FALSE(ReasonWithCells("3000,3000,80,4000,,,").refusal);
}

TEST(Refusals, NameTheLineAndQuoteLittle)
{
    EXPECT_EQ(ReasonWithCells("3000,-5,80,4000").why, "line 22: \"-5\" is no value from 0 to 10000");
    const Reason reason = ReasonWithCells("3000,あいうえおかきくけこさしすせそたちつてと,80,4000");
    EXPECT_EQ(reason.why, "line 22: \"あいうえおかきくけこさしすせそた...\" is no value from 0 to 10000");
}

TEST(Refusals, OfMoreThanAFileHolds)
{
    const std::string text = PublishedText(Layout::kTokyoD1, kDay, kNoon) + "\n";
    std::string manyHeadings;
    for (int i = 0; i < 250; ++i) {
        manyHeadings += "何か\n\n";
    }
    std::string manyColumns = "1";
    for (int i = 0; i < 64; ++i) {
        manyColumns += ",1";
    }
    EXPECT_EQ(ReasonOf(text + std::string(1024UL * 1024, '\n')).refusal, Refusal::kUnknownLayout);
    EXPECT_EQ(ReasonOf(text + std::string(10000, '\n')).refusal, Refusal::kUnknownLayout);
    EXPECT_EQ(ReasonOf(text + manyColumns + "\n").refusal, Refusal::kUnknownLayout);
    EXPECT_EQ(ReasonOf(text + manyHeadings).refusal, Refusal::kUnknownLayout);
    EXPECT_EQ(ReasonOf(text + std::string(1001, 'x') + "\n").refusal, Refusal::kUnknownLayout);
    EXPECT_EQ(ReasonOf(text + "0," + std::string(1001, 'x') + ",0\n").refusal, Refusal::kUnknownLayout);
    EXPECT_FALSE(ReasonOf(text + std::string(9000, '\n') + std::string(1000, 'x') + "\n").refusal);
    EXPECT_FALSE(ReasonOf(text + manyColumns.substr(2) + std::string(1000, ',') + "\n").refusal);
}

// Symptom: a line of half a million marks that combine with the letter before them kept the reader busy for minutes.
TEST(Refusals, OfALineOfCombiningMarksAtOnce)
{
    std::string marks;
    for (const char* mark : {"\u0301", "\u0316"}) {
        for (int i = 0; i < 250000; ++i) {
            marks += mark;
        }
    }
    const std::string text = PublishedText(Layout::kTokyoD1, kDay, kNoon);
    EXPECT_EQ(ReasonOf(text + marks + "\n").refusal, Refusal::kUnknownLayout);
    const Reason stamp = ReasonOf(marks + "\n");
    EXPECT_EQ(stamp.refusal, Refusal::kNoStamp);
    EXPECT_LT(stamp.why.size(), 100U);
}

TEST(Refusals, QuoteWholeCharactersOfALongFirstLine)
{
    std::string text;
    std::string quoted;
    for (int i = 0; i < 40; ++i) {
        text += "\u1112\u1161\u11AB"; // three parts of one syllable, nine bytes
        quoted += i < 11 ? "\uD55C" : "";
    }
    EXPECT_EQ(ReasonOf(text + "\n").why, "it begins with \"" + quoted + "\", not with its stamp");
}

// --- The day and the clock.

std::optional<Refusal> TimelinessOf(LocalTime published, year_month_day expected, LocalTime now,
                                    minutes frozenAfter = 2h)
{
    PublishedFile file;
    file.date = kDay;
    file.published = published;
    try {
        CheckTimeliness(file, expected, now, frozenAfter);
    } catch (const CRefusedFile& refused) {
        return refused.Reason();
    }
    return {};
}

TEST(Timeliness, StampMayBeTenMinutesAhead)
{
    EXPECT_EQ(TimelinessOf(kNoon, kDay, kNoon - 10min), std::nullopt);
    EXPECT_EQ(TimelinessOf(kNoon, kDay, kNoon - 10min - 1s), Refusal::kFutureStamp);
}

TEST(Timeliness, FileIsOfTheDayThatWasAskedFor)
{
    EXPECT_EQ(TimelinessOf(kNoon, kDay, kNoon), std::nullopt);
    EXPECT_EQ(TimelinessOf(kNoon, 2026y / 4 / 19, kNoon), Refusal::kOtherDay);
    EXPECT_EQ(TimelinessOf(kNoon, 2026y / 4 / 21, kNoon), Refusal::kOtherDay);
    EXPECT_EQ(TimelinessOf(kMidnight - 1min, kDay, kMidnight), Refusal::kOtherDay);
    EXPECT_EQ(TimelinessOf(kMidnight, kDay, kMidnight), std::nullopt);
}

TEST(Timeliness, TodaysFileIsRenewed)
{
    EXPECT_EQ(TimelinessOf(kNoon, kDay, kNoon + 2h), std::nullopt);
    EXPECT_EQ(TimelinessOf(kNoon, kDay, kNoon + 2h + 1s), Refusal::kFrozen);
    EXPECT_EQ(TimelinessOf(kNoon, kDay, kMidnight + 24h - 1s), Refusal::kFrozen);
}

TEST(Timeliness, HourAfterMidnightDoesNotCount)
{
    EXPECT_EQ(TimelinessOf(kMidnight, kDay, kMidnight + 1h + 30min, 30min), std::nullopt);
    EXPECT_EQ(TimelinessOf(kMidnight, kDay, kMidnight + 1h + 30min + 1s, 30min), Refusal::kFrozen);
    EXPECT_EQ(TimelinessOf(kMidnight, kDay, kMidnight + 59min, 10min), std::nullopt);
}

TEST(Timeliness, ClosedDayMayBeStampedOnAnyLaterDay)
{
    const LocalTime later = kMidnight + 10 * 24h;
    EXPECT_EQ(TimelinessOf(kMidnight + 24h + 6min, kDay, kMidnight + 24h + 10min), std::nullopt);
    EXPECT_EQ(TimelinessOf(kMidnight + 24h + 6min, kDay, later), std::nullopt);
    EXPECT_EQ(TimelinessOf(later - 1h, kDay, later), std::nullopt);
    EXPECT_EQ(TimelinessOf(kNoon, kDay, later), std::nullopt);
}

} // namespace
} // namespace reportd
