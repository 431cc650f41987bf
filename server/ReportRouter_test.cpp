#include "server/ReportRouter.h"

#include "format/Catalogue.h"

#include <gmock/gmock.h>

namespace reportd {

// For messages of failing tests.
static void PrintTo(const ReportAnswer& answer, std::ostream* stream)
{
    *stream << answer.status << "\n" << answer.body;
}

namespace {

using namespace catalogue;
using namespace std::chrono_literals;
using testing::Not;

// 2012-07-02 00:12:00: two instant usages of that day have ended.
constexpr LocalTime kNow = std::chrono::local_days{2012y / 7 / 2} + 12min;

ReportAnswer Get(std::string_view target) { return AnswerReportRequest("GET", target, kNow); }

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
    EXPECT_EQ(Get(target), (ReportAnswer{200, body})) << target;
}

TEST(ReportRouter, ReportIsAWholeDocument)
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

TEST(ReportRouter, EveryCompanyHasItsOwnReport)
{
    std::vector<std::string> bodies;
    for (const std::string company : {"tokyo", "tohoku", "chubu", "kansai", "kyushu"}) {
        const ReportAnswer answer = Get("/usage/" + company + "/estimated?date=2012-07-02&output=xml");
        EXPECT_EQ(answer.status, 200U) << company;
        EXPECT_THAT(bodies, Not(testing::Contains(answer.body))) << company;
        bodies.push_back(answer.body);
    }
}

TEST(ReportRouter, UnknownTargetsAreNotFound)
{
    for (const std::string_view target : {
             "",
             "/",
             "*",
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
        EXPECT_EQ(Get(target), ReportAnswer{.status = 404}) << target;
    }
}

TEST(ReportRouter, TargetMayNameTheServer)
{
    // Symptom: a client that asked as it asks a proxy got 404 for every report.
    const ReportAnswer report = Get("/usage/tokyo/estimated?date=2012-07-02&output=xml");
    EXPECT_EQ(report.status, 200U);
    EXPECT_EQ(Get("http://here/usage/tokyo/estimated?date=2012-07-02&output=xml"), report);
    EXPECT_EQ(Get("HTTP://[::1]:8470/usage/tokyo/estimated?date=2012-07-02&output=xml"), report);
}

TEST(ReportRouter, MalformedAndImpossibleDatesAreNotFound)
{
    for (const std::string date :
         {"", "2012-7-2", "2012-07-2", "12-07-02", "2012/07/02", "20120702", "2012-07-02T00:00", "2012-07-021",
          "+012-07-02", " 012-07-02", "2012-07- 2", "2012-07--2", "2012-13-01", "2012-00-01", "2012-07-00",
          "2012-07-32", "2012-06-31", "2011-02-29", "today"}) {
        EXPECT_EQ(Get("/usage/tokyo/estimated?date=" + date + "&output=xml"), ReportAnswer{.status = 404}) << date;
    }
    EXPECT_EQ(Get("/usage/tokyo/estimated?date=2012-02-29&output=xml").status, 200U);
}

TEST(ReportRouter, DayWithoutDataIsUnavailableWithEmptyBody)
{
    for (const std::string_view target : {
             "/usage/tokyo/instant?date=2012-07-03&output=xml",   // tomorrow: nothing measured yet
             "/usage/tokyo/actual?date=2012-07-02&output=xml",    // today: no hour has ended
             "/usage/tokyo/estimated?date=2012-07-04&output=xml", // later than tomorrow
             "/peak/tokyo/supply?date=2010-12-31&output=xml",     // before the first day
             "/peak/tokyo/demand?date=0000-01-01&output=xml",     //
             "/peak/tokyo/demand?date=9999-12-31&output=xml",     //
         }) {
        EXPECT_EQ(Get(target), ReportAnswer{.status = 503}) << target;
    }
}

TEST(ReportRouter, OtherMethodsAreNotAllowed)
{
    for (const std::string_view method : {"HEAD", "POST", "PUT", "DELETE", "OPTIONS", "get", "BREW"}) {
        EXPECT_EQ(AnswerReportRequest(method, "/usage/tokyo/estimated?date=2012-07-02&output=xml", kNow),
                  ReportAnswer{.status = 405})
            << method;
    }
    EXPECT_EQ(AnswerReportRequest("POST", "/", kNow).status, 405U);
}

} // namespace
} // namespace reportd
