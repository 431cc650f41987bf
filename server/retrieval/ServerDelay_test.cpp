#include "server/retrieval/ServerDelay.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

using std::chrono::seconds;
using testing::Eq;
using testing::Optional;

constexpr const char* kDate = "Sun, 22 Nov 2026 03:00:00 GMT";
constexpr const char* kMinuteLater = "Sun, 22 Nov 2026 03:01:00 GMT";
constexpr std::chrono::sys_seconds kNow{seconds(1'795'316'450)}; // 50 seconds after kDate

TEST(ServerDelay, ReadsRetryAfterInSeconds)
{
    for (const auto& [text, delay] : std::vector<std::pair<std::string, int>>{
             {"0", 0}, {"120", 120}, {"3600", 3600}, {"3601", 3600}, {"99999999999999999999", 3600}}) {
        EXPECT_THAT(ReadRetryAfter({.retryAfter = text}, kNow), Optional(seconds(delay))) << text;
    }
}

TEST(ServerDelay, ReadsRetryAfterAsADateByTheServersClock)
{
    EXPECT_THAT(ReadRetryAfter({.retryAfter = kMinuteLater, .date = kDate}, kNow), Optional(seconds(60)));
    EXPECT_THAT(ReadRetryAfter({.retryAfter = kDate, .date = kMinuteLater}, kNow), Optional(seconds(0)));
    EXPECT_THAT(ReadRetryAfter({.retryAfter = "Fri, 22 Nov 2999 03:00:00 GMT", .date = kDate}, kNow),
                Optional(kLongestServerDelay));
}

TEST(ServerDelay, TakesOurClockForAServerThatTellsNoTime)
{
    for (const char* date : {"", "today"}) {
        EXPECT_THAT(ReadRetryAfter({.retryAfter = kMinuteLater, .date = date}, kNow), Optional(seconds(10))) << date;
    }
}

TEST(ServerDelay, IgnoresWhatIsNoDelay)
{
    for (const char* text : {"", "-1", "+5", "1.5", "soon", "5 minutes", "2026-11-22", "Mon, 99 Foo 2026"}) {
        EXPECT_THAT(ReadRetryAfter({.retryAfter = text}, kNow), Eq(std::nullopt)) << text;
        EXPECT_THAT(ReadFreshness({.expires = text}, kNow), Eq(std::nullopt)) << text;
    }
}

TEST(ServerDelay, ReadsMaxAgeAmongOtherDirectives)
{
    for (const char* text :
         {"max-age=120", "public, max-age=120", "Public,MAX-AGE=120 ", "s-maxage=9,\tmax-age=120,x"}) {
        EXPECT_THAT(ReadFreshness({.cacheControl = text}, kNow), Optional(seconds(120))) << text;
    }
    EXPECT_THAT(ReadFreshness({.cacheControl = "max-age=86400"}, kNow), Optional(kLongestServerDelay));
    for (const char* text : {"", ",", "max-age", "max-age=", "max-age=-1", "public"}) {
        EXPECT_THAT(ReadFreshness({.cacheControl = text}, kNow), Eq(std::nullopt)) << text;
    }
}

TEST(ServerDelay, SubtractsTheTimeInACacheOnTheWay)
{
    EXPECT_THAT(ReadFreshness({.cacheControl = "max-age=120", .age = "50"}, kNow), Optional(seconds(70)));
    EXPECT_THAT(ReadFreshness({.cacheControl = "max-age=120", .age = "121"}, kNow), Optional(seconds(0)));
    EXPECT_THAT(ReadFreshness({.cacheControl = "max-age=120", .age = "old"}, kNow), Optional(seconds(120)));
}

TEST(ServerDelay, ReadsExpiresOnlyWithoutMaxAge)
{
    EXPECT_THAT(ReadFreshness({.expires = kMinuteLater, .date = kDate}, kNow), Optional(seconds(60)));
    EXPECT_THAT(ReadFreshness({.cacheControl = "max-age=1", .expires = kMinuteLater, .date = kDate}, kNow),
                Optional(seconds(1)));
    for (const char* text : {"0", "20261122"}) {
        EXPECT_THAT(ReadFreshness({.expires = text, .date = kDate}, kNow), Eq(std::nullopt)) << text;
    }
}

TEST(ServerDelay, AnAnswerThatMayNotBeKeptHasNoFreshness)
{
    for (const char* text : {"no-cache", "no-store, max-age=600", "max-age=600, No-Cache"}) {
        EXPECT_THAT(ReadFreshness({.cacheControl = text, .expires = kMinuteLater, .date = kDate}, kNow),
                    Eq(std::nullopt))
            << text;
    }
}

} // namespace
} // namespace reportd
