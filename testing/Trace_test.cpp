#include "testing/Trace.h"

#include <gtest/gtest.h>

namespace testing_support {
namespace {

TEST(ParseTraceLine, TakesEveryPartOfALine)
{
    for (const char* end : {"", "\n"}) {
        const auto line =
            ParseTraceLine(std::string("[WAR] 2012/07/02 13:00:00.042 4711(12) CA::Do : a : b (c) ") + end);
        ASSERT_TRUE(line.has_value());
        EXPECT_EQ(line->trace, (TraceLine{"WAR", "CA::Do", "a : b (c) "}));
        EXPECT_EQ(line->time, "2012/07/02 13:00:00.042");
        EXPECT_EQ(line->process, 4711);
        EXPECT_EQ(line->thread, 12);
    }
}

TEST(ParseTraceLine, RefusesOtherText)
{
    for (const char* text : {"", "text", "[TRA]", "[TRA] 2012/07/02 13:00:00.042 4711(12) CA::Do",
                             "[TRA] 2012/07/02 13:00:00.042 CA::Do : message", "CA::Do : message"}) {
        EXPECT_FALSE(ParseTraceLine(text).has_value()) << text;
    }
}

} // namespace
} // namespace testing_support
