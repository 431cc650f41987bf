#include "chart/Markup.h"

#include <gmock/gmock.h>

namespace chart {
namespace {

TEST(Markup, EscapesWhatWouldBeMarkup)
{
    EXPECT_EQ(Escape("<a href='x' title=\"y\">&</a>"), "&lt;a href=&#39;x&#39; title=&quot;y&quot;&gt;&amp;&lt;/a&gt;");
    EXPECT_EQ(Escape("\xE6\x9D\xB1\xE4\xBA\xAC, 5 %"), "\xE6\x9D\xB1\xE4\xBA\xAC, 5 %");
}

TEST(Markup, ReplacesCharactersThatXmlDoesNotHave)
{
    EXPECT_EQ(Escape(std::string_view("a\0b\x1B"
                                      "c\x7F\td\ne\r",
                                      11)),
              "a\xEF\xBF\xBD"
              "b\xEF\xBF\xBD"
              "c\xEF\xBF\xBD\td\ne\xEF\xBF\xBD");
}

TEST(Markup, ClosesEveryElement)
{
    CMarkup markup;
    markup.Element("p", {{"class", "a\"b"}, {"id", "c"}}, [&markup] {
        markup.Text("1 < 2");
        markup.Empty("br", {});
        markup.Element("b", {}, "& so on");
        markup.Markup("<i>as it is</i>");
    });
    EXPECT_EQ(markup.Written(), "<p class=\"a&quot;b\" id=\"c\">1 &lt; 2<br/><b>&amp; so on</b><i>as it is</i></p>");
}

} // namespace
} // namespace chart
