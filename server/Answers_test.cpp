#include "server/Answers.h"

#include "server/SampleSource.h"
#include "testing/Answering.h"
#include "testing/ScriptedSource.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

using namespace catalogue;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::Not;
using testing_support::BodyOf;
using testing_support::CScriptedSource;
using testing_support::FieldOf;
using testing_support::Get;

// 2012-07-02 00:12:00: two instant usages of that day have ended.
constexpr LocalTime kNow = local_days{2012y / 7 / 2} + 12min;

class SampleAnswers : public testing::Test {
protected:
    WebAnswer Ask(std::string_view target) { return Get(m_answers, target, kNow); }

    void ExpectAnswer(std::string_view target, unsigned status, const std::string& body = {})
    {
        const WebAnswer answer = Ask(target);
        EXPECT_EQ(answer.status, status) << target;
        EXPECT_EQ(BodyOf(answer), body) << target;
    }

    // Asks for a report and compares all of it. attributes: those of each record; records: where the values come from.
    void ExpectDocument(std::string_view target, const std::string& element, const std::string& item,
                        const std::vector<std::string>& attributes, const std::vector<ReportRecord>& records)
    {
        ASSERT_EQ(records.size(), attributes.size());
        std::string body = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<power_report>\n  <" + element + ">\n";
        for (std::size_t i = 0; i < records.size(); ++i) {
            body += "    <" + item + " " + attributes[i] + ">" + std::to_string(records[i].value) + "</" + item + ">\n";
        }
        body += "  </" + element + ">\n</power_report>\n";
        ExpectAnswer(target, 200, body);
    }

    CSampleSource m_source;
    CAnswers m_answers{m_source, nullptr, {}};
};

TEST_F(SampleAnswers, ReportIsAWholeDocument)
{
    constexpr std::chrono::year_month_day kDay = 2012y / 7 / 2;
    ExpectDocument(
        "/usage/tokyo/instant?date=2012-07-02&output=xml", "instant_usage", "usage",
        {R"(datetime="2012-07-02T00:00:00" duration="300")", R"(datetime="2012-07-02T00:05:00" duration="300")"},
        SampleRecords(kTokyo, Series::kInstantUsage, kDay, kNow));
    const std::string peak = R"(start="2012-07-02T14:00:00" end="2012-07-02T15:00:00")";
    ExpectDocument("/peak/kyushu/supply?date=2012-07-02&output=xml", "peak_supply", "supply", {peak},
                   SampleRecords(kKyushu, Series::kPeakSupply, kDay, kNow));
    ExpectDocument("/peak/kyushu/demand?date=2012-07-02&output=xml", "peak_demand", "demand", {peak},
                   SampleRecords(kKyushu, Series::kPeakDemand, kDay, kNow));
    std::vector<std::string> hours;
    hours.reserve(24);
    for (int hour = 0; hour < 24; ++hour) {
        hours.push_back("datetime=\"2012-07-01T" + std::to_string(hour / 10) + std::to_string(hour % 10) +
                        ":00:00\" duration=\"3600\"");
    }
    ExpectDocument("/usage/tokyo/actual?date=2012-07-01&output=xml", "actual_usage", "usage", hours,
                   SampleRecords(kTokyo, Series::kActualUsage, 2012y / 7 / 1, kNow));
    ExpectDocument("/usage/tokyo/estimated?date=2012-07-01&output=xml", "estimated_usage", "usage", hours,
                   SampleRecords(kTokyo, Series::kEstimatedUsage, 2012y / 7 / 1, kNow));
}

TEST_F(SampleAnswers, EveryCompanyHasItsOwnReport)
{
    std::vector<std::string> bodies;
    for (const std::string company : {"tokyo", "tohoku", "chubu", "kansai", "kyushu"}) {
        const WebAnswer answer = Ask("/usage/" + company + "/estimated?date=2012-07-02&output=xml");
        EXPECT_EQ(answer.status, 200U) << company;
        EXPECT_THAT(bodies, Not(testing::Contains(BodyOf(answer)))) << company;
        bodies.push_back(BodyOf(answer));
    }
}

TEST_F(SampleAnswers, UnknownTargetsAreNotFound)
{
    for (const std::string_view target : {
             "",
             "*",
             "//",
             "usage/tokyo/instant?date=2012-07-02&output=xml",
             "/favicon.ico",
             "/usage/okinawa/instant?date=2012-07-02&output=xml",        // company
             "/usage/Tokyo/instant?date=2012-07-02&output=xml",          // case counts
             "/usage//instant?date=2012-07-02&output=xml",               //
             "/usage/tokyo/supply?date=2012-07-02&output=xml",           // kind of the other category
             "/peak/tokyo/instant?date=2012-07-02&output=xml",           //
             "/usage/tokyo/instan?date=2012-07-02&output=xml",           //
             "/usage/tokyo/instant/?date=2012-07-02&output=xml",         //
             "/usage/tokyo/instant/x?date=2012-07-02&output=xml",        //
             "/x/usage/tokyo/instant?date=2012-07-02&output=xml",        //
             "/usage/tokyo/../tokyo/instant?date=2012-07-02&output=xml", //
             "/usage/tokyo/instant",                                     // no date
             "/usage/tokyo/instant?",                                    //
             "/usage/tokyo/instant?output=xml",                          //
             "/usage/tokyo/instant?date=2012-07-02",                     // no output
             "/usage/tokyo/instant?date=2012-07-02&output=json",         //
             "/usage/tokyo/instant?date=2012-07-02&output=xml&x=1",      //
             "http://",                                                  // no path
             "http://here",                                              //
             "http:///usage/tokyo/instant?date=2012-07-02&output=xml",   // no server
             "http://here?/usage/tokyo/instant?date=2012-07-02&output=xml",
             "https://here/usage/tokyo/instant?date=2012-07-02&output=xml",
             "xhttp://here/usage/tokyo/instant?date=2012-07-02&output=xml",
         }) {
        ExpectAnswer(target, 404);
    }
}

TEST_F(SampleAnswers, TargetMayNameTheServer)
{
    // Symptom: a client that asked as it asks a proxy got 404 for every report.
    const std::string report = BodyOf(Ask("/usage/tokyo/estimated?date=2012-07-02&output=xml"));
    EXPECT_FALSE(report.empty());
    ExpectAnswer("http://here/usage/tokyo/estimated?date=2012-07-02&output=xml", 200, report);
    ExpectAnswer("HTTP://[::1]:8470/usage/tokyo/estimated?date=2012-07-02&output=xml", 200, report);
}

TEST_F(SampleAnswers, MalformedAndImpossibleDatesAreNotFound)
{
    for (const std::string date :
         {"", "2012-7-2", "2012-07-2", "12-07-02", "2012/07/02", "20120702", "2012-07-02T00:00", "2012-07-021",
          "+012-07-02", " 012-07-02", "2012-07- 2", "2012-07--2", "2012-13-01", "2012-00-01", "2012-07-00",
          "2012-07-32", "2012-06-31", "2011-02-29", "today"}) {
        ExpectAnswer("/usage/tokyo/estimated?date=" + date + "&output=xml", 404);
    }
    EXPECT_EQ(Ask("/usage/tokyo/estimated?date=2012-02-29&output=xml").status, 200U);
}

TEST_F(SampleAnswers, DayWithoutDataIsUnavailableWithEmptyBody)
{
    for (const std::string_view target : {
             "/usage/tokyo/instant?date=2012-07-03&output=xml",   // tomorrow: nothing measured yet
             "/usage/tokyo/actual?date=2012-07-02&output=xml",    // today: no hour has ended
             "/usage/tokyo/estimated?date=2012-07-04&output=xml", // later than tomorrow
             "/peak/tokyo/supply?date=2010-12-31&output=xml",     // before the first day
             "/peak/tokyo/demand?date=0000-01-01&output=xml",     //
             "/peak/tokyo/demand?date=9999-12-31&output=xml",     //
         }) {
        ExpectAnswer(target, 503);
    }
}

TEST_F(SampleAnswers, OtherMethodsAreNotAllowed)
{
    for (const std::string_view method : {"HEAD", "POST", "PUT", "DELETE", "OPTIONS", "get", "BREW"}) {
        for (const std::string_view target :
             {"/usage/tokyo/estimated?date=2012-07-02&output=xml", "/", "/metrics", "x"}) {
            const WebAnswer answer = m_answers.Answer({.method = method, .target = target}, kNow);
            EXPECT_EQ(answer.status, 405U) << method;
            EXPECT_EQ(BodyOf(answer), "") << method;
            EXPECT_EQ(FieldOf(answer, "Allow"), "GET") << method;
        }
    }
}

TEST_F(SampleAnswers, SampleReportHasNoStampOfAPublisherAndNoAge)
{
    const WebAnswer answer = Ask("/usage/tokyo/estimated?date=2012-07-02&output=xml");
    EXPECT_EQ(answer.contentType, "application/xml; charset=utf-8");
    EXPECT_EQ(FieldOf(answer, "X-Ampora-Published"), "-");
    EXPECT_EQ(answer.age, std::nullopt);
    EXPECT_EQ(m_answers.SourceName(), "sample");
}

TEST_F(SampleAnswers, SampleReportGrowsWithTheClock)
{
    const std::string target = "/usage/tokyo/instant?date=2012-07-02&output=xml";
    const std::size_t early = BodyOf(Ask(target)).size();
    EXPECT_GT(BodyOf(Get(m_answers, target, kNow + 5min)).size(), early);
    EXPECT_EQ(BodyOf(Get(m_answers, target, kNow)).size(), early);
}

// --- Live data ------------------------------------------------------------------------------------------------------

constexpr year_month_day kToday = 2026y / 11 / 22;
constexpr LocalTime kMidnight = std::chrono::local_days{kToday};
constexpr LocalTime kLiveNow = kMidnight + 13h;
constexpr const char* kTodaysReport = "/usage/tokyo/actual?date=2026-11-22&output=xml";
constexpr const char* kPastReport = "/usage/tokyo/actual?date=2026-11-21&output=xml";
constexpr const char* kTomorrowsReport = "/peak/tokyo/demand?date=2026-11-23&output=xml";

class LiveAnswers : public testing::Test {
protected:
    LiveAnswers()
    {
        for (const int day : {-1, 0, 1}) {
            const auto date = DayAt(day);
            const LocalTime start = local_days{date};
            const Series series = day == 1 ? Series::kPeakDemand : Series::kActualUsage;
            m_source.Set(kTokyo, series, date, {{start, start + 1h, 30000}});
            Observe(day, kLiveNow - 1min);
        }
    }

    static year_month_day DayAt(int fromToday) { return year_month_day{local_days{kToday} + days{fromToday}}; }

    void Observe(int fromToday, LocalTime when) { m_source.Observe(kTokyo, DayAt(fromToday), when - 5min, when); }

    WebAnswer Ask(std::string_view target, std::string_view ifNoneMatch = {}, LocalTime now = kLiveNow)
    {
        return m_answers.Answer({.method = "GET", .target = target, .ifNoneMatch = ifNoneMatch}, now);
    }

    CScriptedSource m_source;
    std::vector<std::string> m_log;
    CAnswers m_answers{m_source, nullptr, {}, [this](const std::string& line) { m_log.push_back(line); }};
};

TEST_F(LiveAnswers, ReportTellsWhenItsFileWasPublished)
{
    EXPECT_EQ(m_answers.SourceName(), "live");
    EXPECT_EQ(FieldOf(Ask(kTodaysReport), "X-Ampora-Published"), "2026-11-22T12:54:00+09:00");
    Observe(0, kLiveNow);
    EXPECT_EQ(FieldOf(Ask(kTodaysReport, {}, kLiveNow + 1s), "X-Ampora-Published"), "2026-11-22T12:55:00+09:00");
}

TEST_F(LiveAnswers, TodayIsKeptAMinuteAndAClosedDayAnHour)
{
    const std::string aMinute = "max-age=60, stale-while-revalidate=60, stale-if-error=600";
    EXPECT_EQ(FieldOf(Ask(kTodaysReport), "Cache-Control"), aMinute);
    EXPECT_EQ(FieldOf(Ask(kTomorrowsReport), "Cache-Control"), aMinute);
    EXPECT_EQ(FieldOf(Ask(kPastReport), "Cache-Control"), "max-age=3600");
    // Symptom: caches kept yesterday without its last hour until one o'clock.
    EXPECT_EQ(FieldOf(Ask(kTodaysReport, {}, kMidnight + 26h - 1s), "Cache-Control"), aMinute);
    EXPECT_EQ(FieldOf(Ask(kTodaysReport, {}, kMidnight + 26h), "Cache-Control"), "max-age=3600");
}

TEST_F(LiveAnswers, WhatIsNotA200IsNotKept)
{
    for (const std::string_view target : {"/usage/tokyo/actual?date=2026-11-24&output=xml", "/none", "/readyz",
                                          "/v1/series?company=x", "/metrics", "/healthz"}) {
        EXPECT_EQ(FieldOf(Ask(target), "Cache-Control"), "no-store") << target;
    }
    EXPECT_EQ(FieldOf(m_answers.Answer({.method = "PUT", .target = "/"}, kLiveNow), "Cache-Control"), "no-store");
}

TEST_F(LiveAnswers, StaleDayHasAnAgeUnlessItIsClosed)
{
    for (const int day : {-1, 0, 1}) {
        Observe(day, kLiveNow - 15min);
    }
    EXPECT_EQ(Ask(kTodaysReport).age, std::nullopt);
    EXPECT_EQ(Ask(kTodaysReport, {}, kLiveNow + 1s).age, 901s);
    EXPECT_EQ(Ask(kTomorrowsReport, {}, kLiveNow + 1s).age, 901s);
    EXPECT_EQ(Ask(kPastReport, {}, kLiveNow + 1s).age, std::nullopt);
    // Found unchanged: neither the stamp nor the revision tells.
    m_source.Observe(kTokyo, kToday, kLiveNow - 20min, kLiveNow + 1s);
    EXPECT_EQ(Ask(kTodaysReport, {}, kLiveNow + 2s).age, std::nullopt);
    Observe(0, kLiveNow + 10min); // the clock was set back
    EXPECT_EQ(Ask(kTodaysReport, {}, kLiveNow + 3s).age, std::nullopt);
}

TEST_F(LiveAnswers, DayThatWasNotObservedForHalfADayIsNotAnswered)
{
    for (const int day : {-1, 0, 1}) {
        Observe(day, kLiveNow - 12h);
    }
    EXPECT_EQ(Ask(kTodaysReport).status, 200U);
    const std::string etag = FieldOf(Ask(kTodaysReport), "ETag");
    for (const char* const target : {kTodaysReport, kTomorrowsReport}) {
        const WebAnswer late = Ask(target, etag, kLiveNow + 1s);
        EXPECT_EQ(late.status, 503U);
        EXPECT_EQ(BodyOf(late), "");
        EXPECT_EQ(FieldOf(late, "Cache-Control"), "no-store");
        EXPECT_EQ(Ask(target, {}, kLiveNow + 1s).status, 503U); // once more, from what is kept
    }
    EXPECT_EQ(Ask(kPastReport, {}, kLiveNow + 1s).status, 200U);
}

TEST_F(LiveAnswers, SettingsSayWhatIsStale)
{
    CAnswers answers(m_source, nullptr, {.staleAfter = 2min, .noneAfter = 4min});
    Observe(0, kLiveNow);
    EXPECT_EQ(Get(answers, kTodaysReport, kLiveNow + 2min).age, std::nullopt);
    EXPECT_EQ(Get(answers, kTodaysReport, kLiveNow + 3min).age, 180s);
    EXPECT_EQ(Get(answers, kTodaysReport, kLiveNow + 4min + 1s).status, 503U);
}

TEST_F(LiveAnswers, ClientThatHasTheReportIsToldSo)
{
    const WebAnswer first = Ask(kTodaysReport);
    const std::string etag = FieldOf(first, "ETag");
    EXPECT_THAT(etag, testing::MatchesRegex("\"\\w+\""));
    for (const std::string& value : {etag, "W/" + etag, "\"x\", " + etag, "\"x\" ,\t" + etag + " ", std::string("*")}) {
        const WebAnswer same = Ask(kTodaysReport, value);
        EXPECT_EQ(same.status, 304U) << value;
        EXPECT_EQ(BodyOf(same), "") << value;
        EXPECT_EQ(same.contentType, "") << value;
        for (const char* const field : {"ETag", "Cache-Control", "X-Ampora-Published"}) {
            EXPECT_EQ(FieldOf(same, field), FieldOf(first, field)) << value;
        }
    }
    for (const std::string& value :
         {std::string("\"x\""), etag.substr(1), etag + "x", std::string(","), std::string("w/")}) {
        EXPECT_EQ(Ask(kTodaysReport, value).status, 200U) << value;
    }
}

TEST_F(LiveAnswers, TagChangesWithTheFiguresOnly)
{
    const std::string etag = FieldOf(Ask(kTodaysReport), "ETag");
    Observe(0, kLiveNow);
    EXPECT_EQ(FieldOf(Ask(kTodaysReport, {}, kLiveNow + 1s), "ETag"), etag);
    m_source.Set(kTokyo, Series::kActualUsage, kToday, {{kMidnight, kMidnight + 1h, 30001}});
    EXPECT_NE(FieldOf(Ask(kTodaysReport, {}, kLiveNow + 2s), "ETag"), etag);
    EXPECT_EQ(Ask(kTodaysReport, etag, kLiveNow + 2s).status, 200U);
}

TEST_F(LiveAnswers, ReportIsRenderedOnceForItsFigures)
{
    const WebAnswer first = Ask(kTodaysReport);
    const WebAnswer same = Ask(std::string("http://here") + kTodaysReport);
    const WebAnswer later = Ask(kTodaysReport, {}, kLiveNow + 1h);
    EXPECT_EQ(m_source.ReadCount(), 1);
    EXPECT_EQ(first.body, same.body); // the very text
    EXPECT_EQ(first.body, later.body);
}

TEST_F(LiveAnswers, SourceIsAskedForChangesOnceASecond)
{
    for (int i = 0; i < 100; ++i) {
        Ask(kTodaysReport);
    }
    EXPECT_EQ(m_source.StateCount(), 1);
    Ask(kTodaysReport, {}, kLiveNow + 1s);
    EXPECT_EQ(m_source.StateCount(), 2);
}

TEST_F(LiveAnswers, NewFigureIsAnsweredInTheNextSecond)
{
    const std::string before = BodyOf(Ask(kTodaysReport));
    m_source.Set(kTokyo, Series::kActualUsage, kToday, {{kMidnight, kMidnight + 1h, 31234}});
    EXPECT_THAT(BodyOf(Ask(kTodaysReport, {}, kLiveNow + 1s)), testing::HasSubstr(">31234<"));
    // Also when the clock is set back meanwhile.
    m_source.Set(kTokyo, Series::kActualUsage, kToday, {{kMidnight, kMidnight + 1h, 31235}});
    EXPECT_THAT(BodyOf(Ask(kTodaysReport, {}, kLiveNow - 1h)), testing::HasSubstr(">31235<"));
}

TEST_F(LiveAnswers, DayThatLosesItsFiguresIsUnavailable)
{
    EXPECT_EQ(Ask(kPastReport).status, 200U);
    m_source.Clear();
    EXPECT_EQ(Ask(kPastReport, {}, kLiveNow + 1s).status, 503U);
}

TEST_F(LiveAnswers, SourceThatFailsMakesEveryFigureUnavailableAndIsLogged)
{
    m_source.Break("disk \"on\" fire");
    for (const char* const target : {kTodaysReport, "/v1/companies", "/metrics", "/", "/company/tokyo",
                                     "/v1/series?company=tokyo&kind=supply&from=2026-11-22&to=2026-11-22"}) {
        const WebAnswer answer = Ask(target);
        EXPECT_EQ(answer.status, 503U) << target;
        EXPECT_EQ(FieldOf(answer, "Cache-Control"), "no-store") << target;
        EXPECT_THAT(BodyOf(answer), Not(testing::HasSubstr("fire"))) << target;
    }
    EXPECT_THAT(m_log, ElementsAre("the figures cannot be read: disk \"on\" fire"));
    Ask(kTodaysReport, {}, kLiveNow + 59s);
    EXPECT_EQ(m_log.size(), 1U);
    Ask(kTodaysReport, {}, kLiveNow + 60s);
    EXPECT_EQ(m_log.size(), 2U);
    m_source.Repair();
    EXPECT_EQ(Ask(kTodaysReport, {}, kLiveNow + 60s).status, 200U);
}

TEST_F(LiveAnswers, DayBeforeAnyFigureIsNotAskedFor)
{
    EXPECT_EQ(Ask("/usage/tokyo/actual?date=1969-12-31&output=xml").status, 503U);
    EXPECT_EQ(m_source.StateCount(), 0);
}

TEST_F(LiveAnswers, HealthIsOfTheServerAndReadinessOfItsSource)
{
    EXPECT_EQ(BodyOf(Ask("/healthz")), "ok\n");
    EXPECT_EQ(Ask("/readyz").status, 200U);
    m_source.Break();
    EXPECT_EQ(Ask("/healthz").status, 200U);
    EXPECT_EQ(Ask("/readyz").status, 503U);
    EXPECT_EQ(Ask("/healthz?x").status, 404U);
}

} // namespace
} // namespace reportd
