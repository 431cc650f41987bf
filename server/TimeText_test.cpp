#include "server/TimeText.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

using namespace std::chrono_literals;
using std::chrono::sys_days;

TEST(TimeText, WritesWithLeadingZeros)
{
    EXPECT_EQ(DateText(2012y / 7 / 2), "2012-07-02");
    EXPECT_EQ(DateText(0000y / 1 / 1), "0000-01-01");
    EXPECT_EQ(DateText(9999y / 12 / 31), "9999-12-31");
    EXPECT_EQ(JapanTimeText(local_days{2012y / 7 / 2} + 3h + 4min + 5s), "2012-07-02T03:04:05+09:00");
    std::string text = "at ";
    PutTime(text, local_days{2012y / 12 / 31} + 23h + 59min + 59s);
    EXPECT_EQ(text, "at 2012-12-31T23:59:59");
}

TEST(TimeText, WritesHttpDates)
{
    EXPECT_EQ(HttpDateText(sys_days{1994y / 11 / 6} + 8h + 49min + 37s), "Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(HttpDateText(sys_days{2028y / 2 / 29}), "Tue, 29 Feb 2028 00:00:00 GMT");
    EXPECT_EQ(HttpDateText(sys_days{2026y / 12 / 31}), "Thu, 31 Dec 2026 00:00:00 GMT");
}

TEST(TimeText, ReadsDatesOfTheCalendarOnly)
{
    EXPECT_EQ(ParseDate("2012-07-02"), 2012y / 7 / 2);
    EXPECT_EQ(ParseDate("2012-02-29"), 2012y / 2 / 29);
    for (const std::string_view text : {"", "2012-7-2", "2012-07-021", " 2012-07-02", "2012/07/02", "2011-02-29",
                                        "2012-13-01", "2012-00-01", "2012-07-00", "+012-07-02", "2012-07--2"}) {
        EXPECT_EQ(ParseDate(text), std::nullopt) << text;
    }
}

TEST(TimeText, ReadsJapanTimesInFourForms)
{
    const LocalTime time = local_days{2012y / 7 / 2} + 13h + 5min;
    EXPECT_EQ(ParseJapanTime("2012-07-02T13:05"), time);
    EXPECT_EQ(ParseJapanTime("2012-07-02T13:05:00"), time);
    EXPECT_EQ(ParseJapanTime("2012-07-02T13:05+09:00"), time);
    EXPECT_EQ(ParseJapanTime("2012-07-02T13:05:59+09:00"), time + 59s);
    for (const std::string_view text : {"", "2012-07-02", "2012-07-02T", "2012-07-02T13", "2012-07-02T24:00",
                                        "2012-07-02T13:60", "2012-07-02T13:00:60", "2012-07-02 13:00",
                                        "2012-07-02T13:00Z", "2012-07-02T13:00+08:00", "2012-07-02T13:00:", "now"}) {
        EXPECT_EQ(ParseJapanTime(text), std::nullopt) << text;
    }
}

} // namespace
} // namespace reportd
