#include "server/page/Page.h"

#include <gmock/gmock.h>

#include <cmath>
#include <map>

namespace reportd {
namespace {

using Colours = std::map<std::string, std::string>;

// The custom properties with a colour in a piece of a style sheet.
Colours ColoursIn(std::string_view style)
{
    Colours colours;
    for (std::size_t name = style.find("--"); name != std::string_view::npos; name = style.find("--", name + 2)) {
        const std::size_t colon = style.find_first_of(":);", name);
        if (colon != std::string_view::npos && style.substr(colon, 3) == ": #") {
            colours[std::string(style.substr(name, colon - name))] = std::string(style.substr(colon + 2, 7));
        }
    }
    return colours;
}

// Those of a rule, in light; in dark those that the first dark block after it sets instead.
Colours ColoursOf(std::string_view rule, bool isDark)
{
    const std::size_t start = kPageStyle.find(rule);
    EXPECT_NE(start, std::string_view::npos) << rule;
    const std::size_t lightEnd = kPageStyle.find('}', start);
    Colours colours = ColoursIn(kPageStyle.substr(start, lightEnd - start));
    if (isDark) {
        const std::size_t dark = kPageStyle.find("prefers-color-scheme: dark", lightEnd);
        EXPECT_NE(dark, std::string_view::npos) << rule;
        for (const auto& [name, colour] : ColoursIn(kPageStyle.substr(dark, kPageStyle.find("\n}", dark) - dark))) {
            EXPECT_TRUE(colours.contains(name)) << name;
            colours[name] = colour;
        }
    }
    return colours;
}

// Relative luminance and contrast as in the Web Content Accessibility Guidelines 2.2.
double LuminanceOf(const std::string& colour)
{
    const auto channel = [&colour](std::size_t place) {
        const double value = std::stoi(colour.substr(place, 2), nullptr, 16) / 255.0;
        return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * channel(1) + 0.7152 * channel(3) + 0.0722 * channel(5);
}

double ContrastOf(const std::string& one, const std::string& other)
{
    const auto [darker, lighter] = std::minmax({LuminanceOf(one), LuminanceOf(other)});
    return (lighter + 0.05) / (darker + 0.05);
}

void ExpectContrast(Colours colours, const std::string& text, const std::string& ground, double least)
{
    ASSERT_TRUE(colours.contains(text) && colours.contains(ground)) << text << " on " << ground;
    EXPECT_GE(ContrastOf(colours[text], colours[ground]), least) << text << " on " << ground;
}

TEST(PageStyle, MeasuresContrastAsItIsDefined)
{
    EXPECT_NEAR(ContrastOf("#000000", "#ffffff"), 21, 0.001);
    EXPECT_NEAR(ContrastOf("#777777", "#ffffff"), 4.48, 0.005);
}

TEST(PageStyle, IsReadableInLightAndDark)
{
    for (const bool isDark : {false, true}) {
        const Colours colours = ColoursOf(":root {", isDark);
        for (const char* const ground : {"--ground", "--card"}) {
            for (const char* const text : {"--text", "--quiet", "--link"}) {
                ExpectContrast(colours, text, ground, 4.5);
            }
        }
        for (const std::string pair : {"--notice", "--stable", "--little-tight", "--tight", "--very-tight"}) {
            ExpectContrast(colours, pair + "-text", pair + "-ground", 4.5);
        }
    }
}

TEST(PageStyle, ShowsChartsInLightAndDark)
{
    for (const bool isDark : {false, true}) {
        Colours colours = ColoursOf("\n.day-chart {", isDark);
        for (const char* const text : {"--chart-text", "--chart-quiet", "--chart-forecast", "--chart-supply"}) {
            ExpectContrast(colours, text, "--chart-ground", 4.5);
        }
        for (const char* const line : {"--chart-measured", "--chart-axis", "--chart-yesterday"}) {
            ExpectContrast(colours, line, "--chart-ground", 3);
        }
        EXPECT_EQ(colours["--chart-ground"], ColoursOf(":root {", isDark)["--card"]);
        const Colours legend = ColoursOf("\n.legend { --", isDark);
        for (const std::string curve : {"measured", "forecast", "supply", "yesterday"}) {
            EXPECT_EQ(legend.at("--" + curve), colours.at("--chart-" + curve));
        }
    }
}

TEST(PageStyle, LoadsNothing)
{
    EXPECT_EQ(kPageStyle.find("url("), std::string_view::npos);
    EXPECT_EQ(kPageStyle.find("@import"), std::string_view::npos);
    EXPECT_EQ(kPageScript.find("://"), std::string_view::npos);
    EXPECT_EQ(kPageScript.find("innerHTML"), std::string_view::npos);
}

} // namespace
} // namespace reportd
