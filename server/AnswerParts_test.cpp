#include "server/AnswerParts.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

TEST(AnswerParts, TagsDifferWithTheText)
{
    EXPECT_EQ(ETagOf("one"), ETagOf("one"));
    EXPECT_NE(ETagOf("one"), ETagOf("two"));
    EXPECT_NE(ETagOf(""), ETagOf(std::string(1, '\0')));
    EXPECT_THAT(ETagOf("one"), testing::MatchesRegex("\"\\w+\""));
}

TEST(AnswerParts, JsonIsPreferredUnlessCsvIsAskedFor)
{
    for (const std::string_view accept :
         {"", "*/*", "application/json", "application/json, text/csv", "text/html,*/*;q=0.8", "text/csv;q=0",
          "text/csv;q=0.4, application/json;q=0.5", "text/*;q=0.1, application/*;q=0.2", "text/csvx", "csv",
          "text/csv; q=0.999, */*"}) {
        EXPECT_FALSE(PrefersTable(accept)) << accept;
    }
    for (const std::string_view accept :
         {"text/csv", "TEXT/CSV", "text/*", "application/json;q=0.5, text/csv", "text/csv;header=present, */*;q=0.1",
          "application/json;q=0, */*", "text/csv ; Q=0.5 , application/json ; q=0.499", "text/csv;q=1.000,*/*;q=0.9"}) {
        EXPECT_TRUE(PrefersTable(accept)) << accept;
    }
}

TEST(AnswerParts, MalformedPreferencesAreBorne)
{
    for (const std::string_view accept : {",,,", ";;;", "text/csv;q", "text/csv;q=", "text/csv;q=x", "=;,=;", "q=1"}) {
        EXPECT_FALSE(PrefersTable(accept)) << accept;
    }
}

} // namespace
} // namespace reportd
