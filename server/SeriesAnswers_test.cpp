// The answers of /v1.
#include "server/SampleSource.h"
#include "testing/Answering.h"
#include "testing/ScriptedSource.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace reportd {
namespace {

using namespace catalogue;
using namespace std::chrono_literals;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing_support::BodyOf;
using testing_support::CScriptedSource;
using testing_support::FieldOf;
using testing_support::Finished;
using testing_support::Get;

constexpr year_month_day kDay = 2026y / 11 / 22;
constexpr LocalTime kMidnight = local_days{kDay};
constexpr LocalTime kNow = kMidnight + 13h;
const std::string kActual = "/v1/series?company=tokyo&kind=actual_usage&from=2026-11-21&to=2026-11-22";

ReportRecord HourOf(LocalTime start, std::uint64_t value) { return {start, start + 1h, value}; }

class SeriesAnswers : public testing::Test {
protected:
    SeriesAnswers()
    {
        m_source.Set(kTokyo, Series::kActualUsage, 2026y / 11 / 21, {HourOf(kMidnight - 1h, 28000)});
        m_source.Set(kTokyo, Series::kActualUsage, kDay, {HourOf(kMidnight, 27000), HourOf(kMidnight + 1h, 26000)});
        m_source.Observe(kTokyo, kDay, kNow - 5min, kNow - 2min);
    }

    WebAnswer Ask(const std::string& target, std::string_view accept = {})
    {
        return Finished(m_answers.Answer({.method = "GET", .target = target, .accept = accept}, kNow));
    }

    json AskJson(const std::string& target)
    {
        const WebAnswer answer = Ask(target);
        EXPECT_EQ(answer.status, 200U) << target;
        EXPECT_EQ(answer.contentType, "application/json") << target;
        return json::parse(BodyOf(answer));
    }

    void ExpectProblem(const std::string& target, const std::string& words)
    {
        const WebAnswer answer = Ask(target);
        EXPECT_EQ(answer.status, 400U) << target;
        EXPECT_EQ(answer.contentType, "application/problem+json") << target;
        const json problem = json::parse(BodyOf(answer));
        EXPECT_EQ(problem["status"], 400) << target;
        EXPECT_EQ(problem["title"], "Bad Request") << target;
        EXPECT_THAT(problem["detail"], testing::ResultOf([](const json& text) { return text.get<std::string>(); },
                                                         testing::StartsWith(words)))
            << target;
        EXPECT_THAT(BodyOf(answer), Not(testing::AnyOf(HasSubstr("<"), HasSubstr("script")))) << target;
    }

    CScriptedSource m_source;
    CAnswers m_answers{m_source, nullptr, {}};
};

TEST_F(SeriesAnswers, RecordsOfAllDaysComeInOrderWithTheirZone)
{
    const json expected = {
        {"company", "tokyo"},
        {"kind", "actual_usage"},
        {"from", "2026-11-21"},
        {"to", "2026-11-22"},
        {"as_of", nullptr},
        {"source", "live"},
        {"records",
         {{{"start", "2026-11-21T23:00:00+09:00"}, {"end", "2026-11-22T00:00:00+09:00"}, {"value_mw", 28000}},
          {{"start", "2026-11-22T00:00:00+09:00"}, {"end", "2026-11-22T01:00:00+09:00"}, {"value_mw", 27000}},
          {{"start", "2026-11-22T01:00:00+09:00"}, {"end", "2026-11-22T02:00:00+09:00"}, {"value_mw", 26000}}}}};
    EXPECT_EQ(AskJson(kActual), expected);
}

TEST_F(SeriesAnswers, TableIsCsvAndIsSavedUnderANameOfOurs)
{
    const WebAnswer answer = Ask(kActual + "&format=csv");
    EXPECT_EQ(answer.status, 200U);
    EXPECT_EQ(answer.contentType, "text/csv; charset=utf-8; header=present");
    EXPECT_EQ(FieldOf(answer, "Content-Disposition"),
              "attachment; filename=\"tokyo-actual_usage-2026-11-21-2026-11-22.csv\"");
    EXPECT_EQ(BodyOf(answer), "start,end,value_mw\r\n"
                              "2026-11-21T23:00:00+09:00,2026-11-22T00:00:00+09:00,28000\r\n"
                              "2026-11-22T00:00:00+09:00,2026-11-22T01:00:00+09:00,27000\r\n"
                              "2026-11-22T01:00:00+09:00,2026-11-22T02:00:00+09:00,26000\r\n");
}

TEST_F(SeriesAnswers, FormatGoesByTheParameterThenByAccept)
{
    EXPECT_THAT(BodyOf(Ask(kActual, "text/csv")), testing::StartsWith("start,"));
    EXPECT_THAT(BodyOf(Ask(kActual + "&format=json", "text/csv")), testing::StartsWith("{"));
    EXPECT_THAT(BodyOf(Ask(kActual, "text/html, */*")), testing::StartsWith("{"));
    EXPECT_EQ(FieldOf(Ask(kActual), "Vary"), "Accept");
}

TEST_F(SeriesAnswers, ParametersMayComeInAnyOrderAndEscaped)
{
    const json expected = AskJson(kActual);
    EXPECT_EQ(AskJson("/v1/series?to=2026-11-22&from=2026-11-21&kind=actual%5fusage&comp%61ny=tokyo"), expected);
}

TEST_F(SeriesAnswers, DaysWithoutFiguresHaveNoRecords)
{
    const json answer = AskJson("/v1/series?company=kyushu&kind=wind&from=1970-01-01&to=1970-01-02");
    EXPECT_EQ(answer["records"], json::array());
    EXPECT_EQ(BodyOf(Ask("/v1/series?company=kyushu&kind=usage_rate&from=1970-01-01&to=1970-01-02&format=csv")),
              "start,end,value_percent\r\n");
}

TEST_F(SeriesAnswers, AsOfAsksForWhatWasKnownThen)
{
    for (const std::string time : {"2026-11-22T01:30:00%2B09:00", "2026-11-22T01:30+09:00", "2026-11-22T01:30"}) {
        m_source.TakeAsked();
        EXPECT_EQ(AskJson(kActual + "&asof=" + time)["as_of"], "2026-11-22T01:30:00+09:00");
        const LocalTime asOf = kMidnight + 90min;
        EXPECT_THAT(m_source.TakeAsked(),
                    ElementsAre(std::pair(2026y / 11 / 21, std::optional(asOf)), std::pair(kDay, std::optional(asOf))));
    }
}

TEST_F(SeriesAnswers, UsageRateIsOfTheSameHourByActualDemandOrElseTheEstimate)
{
    const auto at = [](int hour, std::uint64_t value) { return HourOf(kMidnight + hour * 1h, value); };
    m_source.Set(kTokyo, Series::kActualUsage, kDay, {at(0, 900), at(1, 1005)});
    m_source.Set(kTokyo, Series::kEstimatedUsage, kDay, {at(0, 1), at(1, 1), at(2, 999), at(4, 5), at(5, 5)});
    m_source.Set(kTokyo, Series::kSupply, kDay, {at(0, 1000), at(1, 1000), at(2, 2000), at(3, 10), at(4, 0)});
    const json answer = AskJson("/v1/series?company=tokyo&kind=usage_rate&from=2026-11-22&to=2026-11-22");
    const auto hour = [](const std::string& start, const std::string& end, double percent) {
        return json{{"start", "2026-11-22T" + start + ":00:00+09:00"},
                    {"end", "2026-11-22T" + end + ":00:00+09:00"},
                    {"value_percent", percent}};
    };
    EXPECT_EQ(answer["records"], (json{hour("00", "01", 90.0), hour("01", "02", 100.5), hour("02", "03", 50.0)}));
    EXPECT_THAT(BodyOf(Ask("/v1/series?company=tokyo&kind=usage_rate&from=2026-11-22&to=2026-11-22&format=csv")),
                HasSubstr("02:00:00+09:00,100.5\r\n"));
}

TEST_F(SeriesAnswers, WhatCannotBeUnderstoodIsABadRequest)
{
    const std::string good = "company=tokyo&kind=supply&from=2026-11-21&to=2026-11-22";
    ExpectProblem("/v1/series", "company: is missing");
    ExpectProblem("/v1/series?company=tokyo&from=2026-11-21&to=2026-11-22", "kind: is missing");
    ExpectProblem("/v1/series?company=tokyo&kind=supply&to=2026-11-22", "from: is missing");
    ExpectProblem("/v1/series?company=tokyo&kind=supply&from=2026-11-22", "to: is missing");
    ExpectProblem("/v1/series?company=okinawa&kind=supply&from=2026-11-21&to=2026-11-22", "company: must be tokyo,");
    ExpectProblem("/v1/series?company=tokyo&kind=Supply&from=2026-11-21&to=2026-11-22", "kind: must be one of instant");
    ExpectProblem("/v1/series?company=tokyo&kind=supply&from=2026-11-31&to=2026-12-01", "from: must be a day");
    ExpectProblem("/v1/series?company=tokyo&kind=supply&from=1969-12-31&to=1970-01-01", "from: must be a day");
    ExpectProblem("/v1/series?company=tokyo&kind=supply&from=2026-11-21&to=today", "to: must be a day");
    ExpectProblem("/v1/series?company=tokyo&kind=supply&from=2026-11-22&to=2026-11-21", "to: must not be before");
    ExpectProblem("/v1/series?" + good + "&from=2026-11-21", "from: must be there once");
    ExpectProblem("/v1/series?" + good + "&asof=now", "asof: must be");
    ExpectProblem("/v1/series?" + good + "&asof=", "asof: must be");
    ExpectProblem("/v1/series?" + good + "&format=xml", "format: must be");
    ExpectProblem("/v1/series?" + good + "&callback=x", "unknown parameter");
    ExpectProblem("/v1/series?" + good + "&&", "unknown parameter");
    ExpectProblem("/v1/companies?x=1", "no parameter");
}

TEST_F(SeriesAnswers, HostileTextsAreNotEchoed)
{
    const std::string good = "/v1/series?company=tokyo&kind=supply&from=2026-11-21&to=2026-11-22";
    for (const std::string text :
         {"%3Cscript%3E", "<script>", "%22%7D", "%0d%0aX:1", "%00", "%", "%zz", "%c3%28", "\"}"}) {
        ExpectProblem(good + "&" + text + "=1", "");
        ExpectProblem(good + "&format=" + text, "");
        ExpectProblem("/v1/series?company=" + text + "&kind=supply&from=2026-11-21&to=2026-11-22", "");
    }
    ExpectProblem(good + "&x=" + std::string(7000, '<'), "unknown parameter");
}

TEST_F(SeriesAnswers, RangeHasAtMost366Days)
{
    EXPECT_EQ(Ask("/v1/series?company=tokyo&kind=supply&from=2024-01-01&to=2024-12-31").status, 200U);
    ExpectProblem("/v1/series?company=tokyo&kind=supply&from=2024-01-01&to=2025-01-01", "to: must be within 366 days");
    ExpectProblem("/v1/series?company=tokyo&kind=supply&from=1970-01-01&to=9999-12-31", "to: must be within 366 days");
}

TEST_F(SeriesAnswers, HaveTagsAndFreshnessAsReports)
{
    const WebAnswer first = Ask(kActual);
    EXPECT_EQ(FieldOf(first, "X-Ampora-Published"), "2026-11-22T12:55:00+09:00");
    EXPECT_THAT(FieldOf(first, "Cache-Control"), testing::StartsWith("max-age=60,"));
    EXPECT_EQ(FieldOf(Ask("/v1/series?company=tokyo&kind=actual_usage&from=2026-11-20&to=2026-11-21"), "Cache-Control"),
              "max-age=3600");
    const std::string etag = FieldOf(first, "ETag");
    const auto again = [&](LocalTime now) {
        return m_answers.Answer({.method = "GET", .target = kActual, .ifNoneMatch = etag}, now);
    };
    EXPECT_EQ(again(kNow).status, 304U);
    EXPECT_EQ(again(kNow + 14min).age, 16min);
    m_source.Set(kTokyo, Series::kActualUsage, 2026y / 11 / 21, {});
    EXPECT_EQ(again(kNow + 15min).status, 200U);
}

TEST_F(SeriesAnswers, RangeThatWasNotObservedForLongIsAnsweredWithItsAge)
{
    m_source.Observe(kTokyo, kDay, kNow - 13h, kNow - 13h);
    EXPECT_EQ(Ask(kActual).status, 200U);
    EXPECT_EQ(Ask(kActual).age, 13h);
    EXPECT_EQ(Ask(kActual + "&asof=2026-11-22T09:00").age, std::nullopt); // what was known then does not grow old
}

TEST_F(SeriesAnswers, LargeRangeIsMadeInStepsAndIsTheSameAsItsParts)
{
    CSampleSource source;
    CAnswers answers(source, nullptr, {});
    const std::string start = "/v1/series?company=tokyo&kind=instant_usage&format=csv&from=";
    WebAnswer answer = answers.Answer({.method = "GET", .target = start + "2012-01-01&to=2012-02-29"}, kNow);
    ASSERT_NE(answer.unfinished, nullptr);
    int steps = 0;
    std::optional<WebAnswer> finished;
    for (; !finished; ++steps) {
        finished = answer.unfinished->Continue();
    }
    EXPECT_EQ(steps, 8); // of 8 days
    const std::string january = BodyOf(Get(answers, start + "2012-01-01&to=2012-01-31", kNow));
    const std::string february = BodyOf(Get(answers, start + "2012-02-01&to=2012-02-29", kNow));
    EXPECT_EQ(BodyOf(*finished), january + february.substr(february.find('\n') + 1));
    EXPECT_EQ(FieldOf(*finished, "Cache-Control"), "max-age=3600");
    EXPECT_NE(FieldOf(*finished, "ETag"), "-");
}

TEST_F(SeriesAnswers, OnlySoManyLargeRangesExistAtATime)
{
    const std::string year = "/v1/series?company=tokyo&kind=supply&from=2024-01-01&to=2024-12-31";
    std::vector<WebAnswer> pending;
    for (int i = 0; i < 3; ++i) {
        pending.push_back(m_answers.Answer({.method = "GET", .target = year}, kNow));
        EXPECT_NE(pending.back().unfinished, nullptr);
    }
    pending.push_back(Ask(year)); // finished, but not sent yet
    EXPECT_EQ(pending.back().status, 200U);
    const WebAnswer refused = Ask(year);
    EXPECT_EQ(refused.status, 503U);
    EXPECT_EQ(FieldOf(refused, "Retry-After"), "1");
    EXPECT_EQ(json::parse(BodyOf(refused))["status"], 503);
    pending.pop_back();
    EXPECT_EQ(Ask(year).status, 200U);
}

TEST_F(SeriesAnswers, LargeRangeOfASourceThatFailsIsUnavailable)
{
    const WebAnswer answer = m_answers.Answer(
        {.method = "GET", .target = "/v1/series?company=tokyo&kind=supply&from=2024-01-01&to=2024-12-31"}, kNow);
    ASSERT_NE(answer.unfinished, nullptr);
    m_source.Break();
    std::optional<WebAnswer> next = answer.unfinished->Continue();
    ASSERT_TRUE(next);
    EXPECT_EQ(next->status, 503U);
    EXPECT_EQ(next->contentType, "application/problem+json");
}

TEST_F(SeriesAnswers, CompaniesTellTheirKindsAndHowFresh)
{
    m_source.Add(kTokyo, Series::kSolar, kDay, {kNow - 10min, kNow - 5min, 100});
    const json answer = AskJson("/v1/companies");
    EXPECT_EQ(answer["source"], "live");
    ASSERT_EQ(answer["companies"].size(), 5U);
    const json& tokyo = answer["companies"][0];
    EXPECT_EQ(tokyo["company"], "tokyo");
    EXPECT_EQ(tokyo["name"], "Tokyo");
    EXPECT_EQ(tokyo["today"], (json{{"date", "2026-11-22"},
                                    {"published", "2026-11-22T12:55:00+09:00"},
                                    {"observed", "2026-11-22T12:58:00+09:00"}}));
    ASSERT_EQ(tokyo["kinds"].size(), 8U);
    EXPECT_EQ(tokyo["kinds"][6], (json{{"kind", "solar"}, {"newest", "2026-11-22T12:50:00+09:00"}}));
    EXPECT_EQ(tokyo["kinds"][7], (json{{"kind", "wind"}, {"newest", nullptr}}));
    EXPECT_EQ(answer["companies"][4]["today"]["published"], nullptr);
}

} // namespace
} // namespace reportd
