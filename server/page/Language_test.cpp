#include "server/page/Language.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

TEST(Language, FollowsTheQueryFirst)
{
    EXPECT_EQ(LanguageOf("en", "ja"), Language::kJapanese);
    EXPECT_EQ(LanguageOf("ja", "en"), Language::kEnglish);
    EXPECT_EQ(LanguageOf("ja", "fr"), Language::kJapanese);
    EXPECT_EQ(LanguageOf("ja", "JA<script>"), Language::kJapanese);
}

TEST(Language, FollowsThePreferenceOfTheReader)
{
    EXPECT_EQ(LanguageOf("", ""), Language::kEnglish);
    EXPECT_EQ(LanguageOf("ja", ""), Language::kJapanese);
    EXPECT_EQ(LanguageOf("JA-jp", ""), Language::kJapanese);
    EXPECT_EQ(LanguageOf("ja,en-US;q=0.9,en;q=0.8", ""), Language::kJapanese);
    EXPECT_EQ(LanguageOf("en-GB , ja ; q=0.9", ""), Language::kEnglish);
    EXPECT_EQ(LanguageOf("en;q=0.3, ja;q=0.301", ""), Language::kJapanese);
    EXPECT_EQ(LanguageOf("fr, de;q=0.9, ja;q=0.1", ""), Language::kJapanese);
    EXPECT_EQ(LanguageOf("fr, *", ""), Language::kEnglish);
}

TEST(Language, TakesNoLanguageOfWeightZero)
{
    EXPECT_EQ(LanguageOf("ja;q=0", ""), Language::kEnglish);
    EXPECT_EQ(LanguageOf("ja;q=0.000", ""), Language::kEnglish);
}

TEST(Language, IgnoresMalformedFields)
{
    for (const char* const field : {"ja;q=2", "ja;q=", "ja;q=0.1234", "ja;q=0x1", "ja;q=-1", "ja;q=1.5", "ja;x=1",
                                    "jab", "j", ";;;", ",,,", "ja;q=0.5;q=1", " ", ";q=1"}) {
        EXPECT_EQ(LanguageOf(field, ""), Language::kEnglish) << field;
    }
    EXPECT_EQ(LanguageOf(",ja,", ""), Language::kJapanese);
    EXPECT_EQ(LanguageOf(std::string_view("\0ja,ja;q=0.1", 12), ""), Language::kJapanese);
}

} // namespace
} // namespace reportd
