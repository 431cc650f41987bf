#include "server/page/Texts.h"

#include <gmock/gmock.h>

#include <set>

namespace reportd {
namespace {

std::set<std::string> PlacesOf(std::string_view text)
{
    std::set<std::string> places;
    for (std::size_t start = text.find('{'); start != std::string_view::npos; start = text.find('{', start + 1)) {
        places.insert(std::string(text.substr(start, 3)));
    }
    return places;
}

bool HasJapanese(std::string_view text)
{
    return std::any_of(text.begin(), text.end(), [](char each) { return static_cast<unsigned char>(each) >= 0xE3; });
}

TEST(Texts, AreCompleteInBothLanguages)
{
    for (int i = 0; i < static_cast<int>(TextId::kCount); ++i) {
        const std::string_view english = TextOf(static_cast<TextId>(i), Language::kEnglish);
        const std::string_view japanese = TextOf(static_cast<TextId>(i), Language::kJapanese);
        EXPECT_FALSE(english.empty()) << i;
        EXPECT_FALSE(japanese.empty()) << english;
        EXPECT_EQ(PlacesOf(english), PlacesOf(japanese)) << english;
    }
}

TEST(Texts, AreEachInTheirLanguage)
{
    const std::set<TextId> sameInBoth = {TextId::kMegawatts, TextId::kMegawattUnit};
    for (int i = 0; i < static_cast<int>(TextId::kCount); ++i) {
        const auto text = static_cast<TextId>(i);
        if (sameInBoth.contains(text) || text == TextId::kOtherLanguage || text == TextId::kDayOf) {
            continue;
        }
        EXPECT_TRUE(HasJapanese(TextOf(text, Language::kJapanese))) << TextOf(text, Language::kJapanese);
        EXPECT_FALSE(HasJapanese(TextOf(text, Language::kEnglish))) << TextOf(text, Language::kEnglish);
    }
    EXPECT_EQ(TextOf(TextId::kOtherLanguage, Language::kEnglish), "日本語");
    EXPECT_EQ(TextOf(TextId::kOtherLanguage, Language::kJapanese), "English");
}

TEST(Texts, TakeTheirValues)
{
    EXPECT_EQ(Filled(TextId::kMeasuredAt, Language::kEnglish, {"14:55", "{0}"}), "at 14:55, {0}");
    EXPECT_EQ(Filled(TextId::kMeasuredAt, Language::kEnglish, {"14:55"}), "at 14:55, {1}");
    EXPECT_EQ(Filled(TextId::kShow, Language::kEnglish, {"14:55"}), "Show");
}

} // namespace
} // namespace reportd
