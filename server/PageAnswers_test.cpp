// The answers for browsers: pages, their style and script.
#include "server/page/Page.h"
#include "testing/Answering.h"
#include "testing/ScriptedSource.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

using namespace catalogue;
using namespace std::chrono_literals;
using testing_support::BodyOf;
using testing_support::FieldOf;

constexpr std::chrono::year_month_day kDay = 2026y / 11 / 22;
constexpr LocalTime kNow = std::chrono::local_days{kDay} + 13h;

class PageAnswers : public testing::Test {
protected:
    PageAnswers()
    {
        const LocalTime hour = kNow - 1h;
        m_source.Set(kTokyo, Series::kActualUsage, kDay, {{hour, hour + 1h, 31234}});
        m_source.Observe(kTokyo, kDay, kNow - 5min, kNow - 2min);
    }

    WebAnswer Ask(std::string_view target, std::string_view language = {}, LocalTime now = kNow)
    {
        return m_answers.Answer({.method = "GET", .target = target, .acceptLanguage = language}, now);
    }

    testing_support::CScriptedSource m_source;
    CAnswers m_answers{m_source, nullptr, {}};
};

TEST_F(PageAnswers, PagesAreThoseOfTheSourceNow)
{
    EXPECT_EQ(BodyOf(Ask("/")), OverviewPage(m_source, kNow, Language::kEnglish));
    EXPECT_EQ(BodyOf(Ask("/company/kansai")), CompanyPage(m_source, kKansai, kDay, kNow, Language::kEnglish));
    EXPECT_EQ(BodyOf(Ask("/company/tokyo?lang=ja&date=2026-11-21")),
              CompanyPage(m_source, kTokyo, 2026y / 11 / 21, kNow, Language::kJapanese));
}

TEST_F(PageAnswers, LanguageIsTheParametersOrElseTheBrowsers)
{
    const std::string japanese = OverviewPage(m_source, kNow, Language::kJapanese);
    const std::string english = OverviewPage(m_source, kNow, Language::kEnglish);
    EXPECT_EQ(BodyOf(Ask("/", "ja,en;q=0.5")), japanese);
    EXPECT_EQ(BodyOf(Ask("/", "en")), english); // and not the one that is kept
    EXPECT_EQ(BodyOf(Ask("/?lang=en", "ja")), english);
    EXPECT_EQ(BodyOf(Ask("/?lang=fr", "ja")), japanese);
    EXPECT_EQ(FieldOf(Ask("/"), "Vary"), "Accept-Language");
}

TEST_F(PageAnswers, BrowserIsToldToLoadNothingElseAndToAskAgain)
{
    for (const char* const target : {"/", "/company/tokyo"}) {
        const WebAnswer page = Ask(target);
        EXPECT_EQ(page.status, 200U) << target;
        EXPECT_EQ(page.contentType, "text/html; charset=utf-8") << target;
        EXPECT_EQ(FieldOf(page, "Content-Security-Policy"), kContentSecurityPolicy) << target;
        EXPECT_EQ(FieldOf(page, "X-Content-Type-Options"), "nosniff") << target;
        EXPECT_EQ(FieldOf(page, "Referrer-Policy"), "no-referrer") << target;
        EXPECT_EQ(FieldOf(page, "Cache-Control"), "no-cache") << target;
    }
}

TEST_F(PageAnswers, PageThatHasNotChangedIsNotSentAgain)
{
    const WebAnswer first = Ask("/page.css");
    for (const char* const target : {"/page.css", "/"}) {
        const WebRequest request{.method = "GET", .target = target, .ifNoneMatch = "*"};
        EXPECT_EQ(m_answers.Answer(request, kNow).status, 304U);
    }
    EXPECT_EQ(FieldOf(Ask("/page.css", {}, kNow + 1h), "ETag"), FieldOf(first, "ETag"));
}

TEST_F(PageAnswers, PageIsWrittenOnceASecond)
{
    Ask("/company/tokyo");
    const int reads = m_source.ReadCount();
    Ask("/company/tokyo");
    EXPECT_EQ(m_source.ReadCount(), reads);
    m_source.Set(kTokyo, Series::kActualUsage, kDay, {{kNow - 1h, kNow, 35678}});
    const WebAnswer later = Ask("/company/tokyo", {}, kNow + 1s);
    EXPECT_EQ(BodyOf(later), CompanyPage(m_source, kTokyo, kDay, kNow + 1s, Language::kEnglish));
}

TEST_F(PageAnswers, StyleAndScriptAreThePages)
{
    const WebAnswer style = Ask("/page.css");
    EXPECT_EQ(style.contentType, "text/css; charset=utf-8");
    EXPECT_EQ(BodyOf(style), kPageStyle);
    EXPECT_EQ(FieldOf(style, "Cache-Control"), "no-cache"); // a new program has a new style
    EXPECT_EQ(FieldOf(style, "X-Content-Type-Options"), "nosniff");
    const WebAnswer script = Ask("/page.js");
    EXPECT_EQ(script.contentType, "text/javascript; charset=utf-8");
    EXPECT_EQ(BodyOf(script), kPageScript);
}

TEST_F(PageAnswers, OtherCompaniesDaysAndParametersAreNotFound)
{
    for (const std::string target :
         {"/company/okinawa", "/company/Tokyo", "/company/", "/company", "/company/tokyo/", "/company/tokyo?date=today",
          "/company/tokyo?date=2026-02-30", "/company/tokyo?date=1969-12-31", "/company/tokyo?x=1",
          "/company/tokyo?date=2026-11-22&date=2026-11-22", "/company/%74okyo", "/?date=2026-11-22", "/?%zz",
          "/?=", "/page.css?v=1", "//", "/company/<b>"}) {
        const WebAnswer answer = Ask(target);
        EXPECT_EQ(answer.status, 404U) << target;
        EXPECT_EQ(BodyOf(answer), "") << target;
    }
    EXPECT_EQ(Ask("/company/tokyo?date=").status, 200U); // today
}

} // namespace
} // namespace reportd
