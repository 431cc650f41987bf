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
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// 2012-07-02 00:12:00: two instant usages of that day have ended.
constexpr LocalTime kNow = std::chrono::local_days{2012y / 7 / 2} + 12min;

ReportAnswer Get(std::string_view target) { return AnswerReportRequest("GET", target, kNow); }

std::string RecordText(const ReportRecord& record) { return std::to_string(record.value); }

TEST(ReportRouter, InstantReportIsWholeDocument)
{
    const std::vector<ReportRecord> records = SampleRecords(kTokyo, kInstantUsage, 2012y / 7 / 2, kNow);
    ASSERT_EQ(records.size(), 2U);
    const ReportAnswer answer = Get("/usage/tokyo/instant?date=2012-07-02&output=xml");
    EXPECT_EQ(answer.status, 200U);
    EXPECT_EQ(answer.body, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                           "<power_report>\n"
                           "  <instant_usage>\n"
                           "    <usage datetime=\"2012-07-02T00:00:00\" duration=\"300\">" +
                               RecordText(records[0]) +
                               "</usage>\n"
                               "    <usage datetime=\"2012-07-02T00:05:00\" duration=\"300\">" +
                               RecordText(records[1]) +
                               "</usage>\n"
                               "  </instant_usage>\n"
                               "</power_report>\n");
}

TEST(ReportRouter, PeakReportsAreWholeDocuments)
{
    const auto value = [](std::uint32_t kind) {
        return RecordText(SampleRecords(kKyushu, kind, 2012y / 7 / 2, kNow).front());
    };
    EXPECT_EQ(Get("/peak/kyushu/supply?date=2012-07-02&output=xml"),
              (ReportAnswer{200, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                 "<power_report>\n"
                                 "  <peak_supply>\n"
                                 "    <supply start=\"2012-07-02T14:00:00\" end=\"2012-07-02T15:00:00\">" +
                                     value(kPeakSupply) +
                                     "</supply>\n"
                                     "  </peak_supply>\n"
                                     "</power_report>\n"}));
    EXPECT_EQ(Get("/peak/kyushu/demand?date=2012-07-02&output=xml"),
              (ReportAnswer{200, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                 "<power_report>\n"
                                 "  <peak_demand>\n"
                                 "    <demand start=\"2012-07-02T14:00:00\" end=\"2012-07-02T15:00:00\">" +
                                     value(kPeakDemand) +
                                     "</demand>\n"
                                     "  </peak_demand>\n"
                                     "</power_report>\n"}));
}

TEST(ReportRouter, ActualAndEstimatedReportsHaveTheirOwnElement)
{
    const std::string actual = Get("/usage/tokyo/actual?date=2012-07-01&output=xml").body;
    EXPECT_THAT(actual, HasSubstr("<actual_usage>\n    <usage datetime=\"2012-07-01T00:00:00\" duration=\"3600\">"));
    EXPECT_THAT(actual, HasSubstr("<usage datetime=\"2012-07-01T23:00:00\" duration=\"3600\">"));
    EXPECT_THAT(actual, EndsWith("</actual_usage>\n</power_report>\n"));
    const std::string estimated = Get("/usage/tokyo/estimated?date=2012-07-02&output=xml").body;
    EXPECT_THAT(estimated,
                HasSubstr("<estimated_usage>\n    <usage datetime=\"2012-07-02T00:00:00\" duration=\"3600\">"));
    EXPECT_THAT(estimated, EndsWith("</estimated_usage>\n</power_report>\n"));
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
         }) {
        EXPECT_EQ(Get(target), ReportAnswer{.status = 404}) << target;
    }
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
