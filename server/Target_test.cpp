#include "server/Target.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;
using testing::Pair;

TEST(Target, ServerIsTakenOff)
{
    EXPECT_EQ(WithoutServer("http://here:8470/a?b=c"), "/a?b=c");
    EXPECT_EQ(WithoutServer("HTTP://[::1]/"), "/");
    for (const std::string_view target :
         {"/a", "//a/b", "", "*", "http://", "http://here", "http:///a", "https://here/a"}) {
        EXPECT_EQ(WithoutServer(target), target);
    }
}

TEST(Target, QueryHasNamesAndValuesInItsOrder)
{
    EXPECT_THAT(ParseQuery(""), Optional(IsEmpty()));
    EXPECT_THAT(ParseQuery("b=2&a=1"), Optional(ElementsAre(Pair("b", "2"), Pair("a", "1"))));
    EXPECT_THAT(ParseQuery("a&b=&=c&&a=x=y"),
                Optional(ElementsAre(Pair("a", ""), Pair("b", ""), Pair("", "c"), Pair("", ""), Pair("a", "x=y"))));
}

TEST(Target, EscapesAreDecodedAndPlusStays)
{
    EXPECT_THAT(ParseQuery("asof=13%3a00%2B09%3A00"), Optional(ElementsAre(Pair("asof", "13:00+09:00"))));
    EXPECT_THAT(ParseQuery("a=13:00+09:00"), Optional(ElementsAre(Pair("a", "13:00+09:00"))));
    EXPECT_THAT(ParseQuery("%6Bind=%E6%9D%B1"), Optional(ElementsAre(Pair("kind", "\xE6\x9D\xB1"))));
}

TEST(Target, BadEscapesAndControlCharactersAreRefused)
{
    for (const std::string_view query :
         {"a=%", "a=%4", "a=%zz", "a=%4z", "a=%+1", "a=%-1", "%=a", "a=%00", "a=%0d%0a", "a=%7F", "a=b&c=%1f"}) {
        EXPECT_EQ(ParseQuery(query), std::nullopt) << query;
    }
}

} // namespace
} // namespace reportd
