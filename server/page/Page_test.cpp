#include "server/page/Page.h"

#include "server/SampleSource.h"
#include "testing/ScriptedSource.h"

#include <gmock/gmock.h>

#include <stack>
#include <stdexcept>

namespace reportd {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr year_month_day kDay = year{2026} / 11 / 22;
constexpr LocalTime kMidnight{local_days{kDay}};
constexpr LocalTime kNow = kMidnight + hours{14} + minutes{58};

ReportRecord Hour(int hour, std::uint64_t value)
{
    return {kMidnight + hours{hour}, kMidnight + hours{hour + 1}, value};
}

// Tokyo with a measurement of 9,000 of 10,000 MW at 14:55, and peaks; nothing of the other companies.
class COneCompany : public testing_support::CScriptedSource {
public:
    COneCompany()
    {
        const LocalTime measured = kMidnight + hours{14} + minutes{55};
        Add(catalogue::kTokyo, Series::kInstantUsage, kDay, {measured, measured + minutes{5}, 9000});
        Add(catalogue::kTokyo, Series::kActualUsage, kDay, Hour(13, 8765));
        Add(catalogue::kTokyo, Series::kEstimatedUsage, kDay, Hour(14, 8888));
        Add(catalogue::kTokyo, Series::kSupply, kDay, Hour(13, 10000));
        Add(catalogue::kTokyo, Series::kSupply, kDay, Hour(14, 10000));
        Add(catalogue::kTokyo, Series::kPeakDemand, kDay, Hour(17, 9600));
        Add(catalogue::kTokyo, Series::kPeakSupply, kDay, Hour(17, 10000));
        SetState(catalogue::kTokyo, kDay, {.revision = 1, .published = measured, .observed = kNow - minutes{2}});
    }
};

std::string Overview(CFigureSource& source, Language language = Language::kEnglish)
{
    return OverviewPage(source, kNow, language);
}

std::string OfTokyo(CFigureSource& source, year_month_day date = kDay, Language language = Language::kEnglish)
{
    return CompanyPage(source, catalogue::kTokyo, date, kNow, language);
}

// The part of the overview that belongs to a company.
std::string CardOf(const std::string& page, const std::string& key)
{
    const std::size_t id = page.find(" id=\"" + key + "\"");
    const std::size_t start = page.rfind("<article", id);
    return id == std::string::npos ? "" : page.substr(start, page.find("</article>", start) - start);
}

// Text without tags, for sentences that run over several elements.
std::string TextOfMarkup(const std::string& markup)
{
    std::string text;
    bool isTag = false;
    for (const char character : markup) {
        isTag = isTag || character == '<';
        if (!isTag) {
            text += character;
        }
        isTag = isTag && character != '>';
    }
    return text;
}

// Fails unless every tag is closed in order, as XML wants it.
void ExpectBalance(const std::string& page)
{
    std::stack<std::string> open;
    for (std::size_t start = page.find('<'); start != std::string::npos; start = page.find('<', start + 1)) {
        const std::size_t end = page.find('>', start);
        ASSERT_NE(end, std::string::npos);
        const std::string tag = page.substr(start + 1, end - start - 1);
        const std::string name = tag.substr(0, tag.find(' '));
        if (tag[0] == '!' || tag.back() == '/') {
            continue;
        }
        if (tag[0] != '/') {
            open.push(name);
            continue;
        }
        ASSERT_FALSE(open.empty()) << tag;
        ASSERT_EQ("/" + open.top(), name) << page.substr(start > 200 ? start - 200 : 0, 220);
        open.pop();
    }
    EXPECT_TRUE(open.empty());
}

TEST(Page, IsWellFormed)
{
    CSampleSource samples;
    testing_support::CScriptedSource nothing;
    COneCompany one;
    for (CFigureSource* const source : {static_cast<CFigureSource*>(&samples), static_cast<CFigureSource*>(&nothing),
                                        static_cast<CFigureSource*>(&one)}) {
        for (const Language language : {Language::kEnglish, Language::kJapanese}) {
            ExpectBalance(Overview(*source, language));
            ExpectBalance(OfTokyo(*source, kDay, language));
        }
    }
}

TEST(Page, ObeysItsContentSecurityPolicy)
{
    CSampleSource source;
    for (const std::string& page : {Overview(source), OfTokyo(source)}) {
        EXPECT_THAT(page, Not(HasSubstr(" style=")));
        EXPECT_THAT(page, Not(HasSubstr("<style")));
        for (const char* const handler : {" onload=", " onclick=", " onsubmit=", " onchange=", " onpointermove="}) {
            EXPECT_THAT(page, Not(HasSubstr(handler)));
        }
        EXPECT_THAT(page, HasSubstr("<script src=\"/page.js\" defer=\"defer\"></script>"));
    }
}

TEST(OverviewPage, ShowsDemandAndUsageRateOfTheSameHour)
{
    COneCompany source;
    const std::string text = TextOfMarkup(CardOf(Overview(source), "tokyo"));
    EXPECT_THAT(text, AllOf(HasSubstr("90.0 % Stable"), HasSubstr("Usage rate of 14:00–15:00"),
                            HasSubstr("9,000 MW at 14:55, 3 minutes ago")));
}

TEST(OverviewPage, ShowsPeaksWithTheirHours)
{
    COneCompany source;
    const std::string text = TextOfMarkup(CardOf(Overview(source), "tokyo"));
    EXPECT_THAT(text, HasSubstr("TodayTomorrowPeak demand9,600 MW17:00–18:00–Supply at peak10,000 MW17:00–18:00–"
                                "Usage rate96.0 % Tight–"));
}

TEST(OverviewPage, ShowsMissingValuesAsMissing)
{
    COneCompany source;
    const std::string text = TextOfMarkup(CardOf(Overview(source), "kansai"));
    EXPECT_THAT(text, AllOf(HasSubstr("Usage rate not known"), HasSubstr("No value since yesterday"),
                            HasSubstr("Peak demand––Supply at peak––Usage rate––"),
                            HasSubstr("Nothing received for this day"), Not(HasSubstr("0 MW"))));
}

TEST(OverviewPage, ShowsYesterdaysReadingUntilThereIsOneOfToday)
{
    testing_support::CScriptedSource source;
    const LocalTime late = kMidnight - minutes{5};
    source.Add(catalogue::kTokyo, Series::kInstantUsage, year{2026} / 11 / 21, {late, kMidnight, 4321});
    const auto cardAt = [&source](LocalTime now) {
        return TextOfMarkup(CardOf(OverviewPage(source, now, Language::kEnglish), "tokyo"));
    };
    EXPECT_THAT(cardAt(kMidnight + minutes{3}), HasSubstr("4,321 MW at 23:55, 8 minutes ago"));
    source.Add(catalogue::kTokyo, Series::kInstantUsage, kDay, {kMidnight, kMidnight + minutes{5}, 4322});
    EXPECT_THAT(cardAt(kMidnight + minutes{8}), HasSubstr("4,322 MW at 0:00, 8 minutes ago"));
}

TEST(OverviewPage, SaysHowOldFiguresAre)
{
    COneCompany source;
    const std::string card = TextOfMarkup(CardOf(Overview(source), "tokyo"));
    EXPECT_THAT(card, HasSubstr("Published 14:55 (3 minutes ago), confirmed 14:56 (2 minutes ago)"));
    EXPECT_THAT(card, Not(HasSubstr("Not up to date")));
    source.SetState(catalogue::kTokyo, kDay,
                    {.revision = 1, .published = kNow - days{1}, .observed = kMidnight + hours{12}});
    const std::string stale = TextOfMarkup(CardOf(Overview(source), "tokyo"));
    EXPECT_THAT(stale,
                HasSubstr("Not up to date Published 2026-11-21 14:58 (24 hours ago), confirmed 12:00 (2 hours ago)"));
}

TEST(OverviewPage, CountsAsStaleWhatItIsTold)
{
    COneCompany source;
    EXPECT_THAT(OverviewPage(source, kNow, Language::kEnglish, minutes{1}), HasSubstr("Not up to date"));
    EXPECT_THAT(OverviewPage(source, kNow, Language::kEnglish, minutes{2}), Not(HasSubstr("Not up to date")));
}

TEST(OverviewPage, CallsSampleDataSo)
{
    CSampleSource samples;
    EXPECT_THAT(Overview(samples), HasSubstr("Sample data: computed, not measured."));
    EXPECT_THAT(Overview(samples, Language::kJapanese), HasSubstr("サンプルデータです"));
    COneCompany live;
    EXPECT_THAT(Overview(live), Not(HasSubstr("Sample")));
}

TEST(OverviewPage, ListsEveryCompanyInBothLanguages)
{
    CSampleSource source;
    const std::string english = Overview(source);
    const std::string japanese = Overview(source, Language::kJapanese);
    EXPECT_THAT(english, HasSubstr("<html lang=\"en\""));
    EXPECT_THAT(japanese, HasSubstr("<html lang=\"ja\""));
    for (const char* const name : {"Tokyo", "Tohoku", "Chubu", "Kansai", "Kyushu"}) {
        EXPECT_THAT(english, HasSubstr(std::string(">") + name + " Electric Power</a>"));
    }
    for (const char* const name : {"東京", "東北", "中部", "関西", "九州"}) {
        EXPECT_THAT(japanese, HasSubstr(std::string(">") + name + "電力</a>"));
    }
    EXPECT_THAT(english, HasSubstr("href=\"/?lang=ja\""));
    EXPECT_THAT(japanese, HasSubstr("href=\"/company/chubu?lang=ja\""));
}

TEST(CompanyPage, ShowsTheValuesOfEachHour)
{
    COneCompany source;
    const std::string text = TextOfMarkup(OfTokyo(source));
    EXPECT_THAT(text, HasSubstr("0:00–1:00––––1:00–2:00––––"));
    EXPECT_THAT(text, HasSubstr("13:00–14:00–8,76510,00087.7"));
    EXPECT_THAT(text, HasSubstr("14:00–15:008,888–10,00088.9"));
    EXPECT_THAT(text, HasSubstr("23:00–24:00––––"));
    EXPECT_THAT(text, HasSubstr("Highest usage rate88.9 % Stable14:00–15:00"));
}

TEST(CompanyPage, ShowsMeasurementsWithSolarAndWindWhereThereAreAny)
{
    COneCompany source;
    EXPECT_THAT(TextOfMarkup(OfTokyo(source)), AllOf(HasSubstr("TimeDemand MW14:559,000"), Not(HasSubstr("Solar"))));
    const LocalTime measured = kMidnight + hours{14} + minutes{50};
    source.Add(catalogue::kTokyo, Series::kSolar, kDay, {measured, measured + minutes{5}, 0});
    source.Add(catalogue::kTokyo, Series::kWind, kDay, {measured, measured + minutes{5}, 77});
    EXPECT_THAT(TextOfMarkup(OfTokyo(source)), HasSubstr("TimeDemand MWSolar MWWind MW14:50–07714:559,000––"));
}

TEST(CompanyPage, ShowsAnHourThatStartsAtAnyMinute)
{
    COneCompany source;
    source.Add(catalogue::kTokyo, Series::kSupply, kDay, {kMidnight + minutes{90}, kMidnight + minutes{150}, 4321});
    EXPECT_THAT(TextOfMarkup(OfTokyo(source)), HasSubstr("1:00–2:00––––1:30––4,321–2:00–3:00––––"));
}

TEST(CompanyPage, OffersEachSeriesAsCsv)
{
    CSampleSource source;
    const std::string page = OfTokyo(source);
    for (const char* const kind : {"estimated_usage", "actual_usage", "supply", "usage_rate", "instant_usage"}) {
        EXPECT_THAT(page, HasSubstr(std::string("href=\"/v1/series?company=tokyo&amp;kind=") + kind +
                                    "&amp;from=2026-11-22&amp;to=2026-11-22&amp;format=csv\""));
    }
}

TEST(CompanyPage, LeadsToTheDaysAround)
{
    CSampleSource source;
    EXPECT_THAT(OfTokyo(source), AllOf(HasSubstr("href=\"/company/tokyo?date=2026-11-21&amp;lang=en\" rel=\"prev\""),
                                       HasSubstr("href=\"/company/tokyo?date=2026-11-23&amp;lang=en\" rel=\"next\""),
                                       HasSubstr("href=\"/company/tokyo?lang=ja\" hreflang=\"ja\"")));
    const std::string tomorrow = OfTokyo(source, year{2026} / 11 / 23);
    EXPECT_THAT(tomorrow,
                AllOf(HasSubstr("href=\"/company/tokyo?lang=en\" rel=\"prev\""), Not(HasSubstr("rel=\"next\"")),
                      HasSubstr("href=\"/company/tokyo?date=2026-11-23&amp;lang=ja\" hreflang=\"ja\"")));
    const std::string past = OfTokyo(source, year{2026} / 3 / 1, Language::kJapanese);
    EXPECT_THAT(past, AllOf(HasSubstr("date=2026-02-28&amp;lang=ja\" rel=\"prev\""),
                            HasSubstr("href=\"/company/tokyo?lang=ja\" rel=\"bookmark\""),
                            HasSubstr("date=2026-03-02&amp;lang=ja\" rel=\"next\"")));
}

TEST(CompanyPage, SaysWhenThereAreNoFigures)
{
    testing_support::CScriptedSource source;
    EXPECT_THAT(OfTokyo(source), AllOf(HasSubstr("There are no figures for this day yet."), Not(HasSubstr("<table")),
                                       Not(HasSubstr("freshness"))));
    EXPECT_THAT(OfTokyo(source, year{2026} / 11 / 21), HasSubstr("There are no figures for this day."));
}

TEST(CompanyPage, ShowsTomorrowsPeaksAlone)
{
    COneCompany source;
    const year_month_day tomorrow = year{2026} / 11 / 23;
    source.Add(catalogue::kTokyo, Series::kPeakDemand, tomorrow,
               {kMidnight + days{1} + hours{9}, kMidnight + days{1} + hours{10}, 8400});
    const std::string text = TextOfMarkup(OfTokyo(source, tomorrow));
    EXPECT_THAT(text, AllOf(HasSubstr("Peak demand8,400 MW9:00–10:00"), HasSubstr("Supply at peak–not published yet"),
                            HasSubstr("Highest usage rateUsage rate not known"), Not(HasSubstr("Newest demand"))));
}

TEST(CompanyPage, IsRenewedUnlessItsDayIsOver)
{
    CSampleSource source;
    EXPECT_THAT(OfTokyo(source), HasSubstr("data-renewal-seconds=\"60\""));
    EXPECT_THAT(OfTokyo(source, year{2026} / 11 / 23), HasSubstr("data-renewal-seconds=\"60\""));
    EXPECT_THAT(OfTokyo(source, year{2026} / 11 / 21), HasSubstr("data-renewal-seconds=\"0\""));
}

TEST(CompanyPage, DrawsYesterdayBehindToday)
{
    CSampleSource source;
    EXPECT_THAT(OfTokyo(source), AllOf(HasSubstr("class=\"line yesterday\""), HasSubstr(">Now 14:58</text>"),
                                       HasSubstr("<li class=\"yesterday\">Demand of the day before</li>")));
    EXPECT_THAT(OfTokyo(source, year{2026} / 11 / 21), Not(HasSubstr(">Now 14:58</text>")));
}

TEST(CompanyPage, NeedsACompany)
{
    CSampleSource source;
    EXPECT_THROW(CompanyPage(source, 1, kDay, kNow, Language::kEnglish), std::invalid_argument);
}

TEST(CompanyPage, StandsAbsurdValues)
{
    testing_support::CScriptedSource source;
    const std::uint64_t huge = ~std::uint64_t{0};
    source.Add(catalogue::kTokyo, Series::kInstantUsage, kDay, {kMidnight, kMidnight + minutes{5}, huge});
    source.Add(catalogue::kTokyo, Series::kSupply, kDay, Hour(0, 1));
    source.Add(catalogue::kTokyo, Series::kPeakDemand, kDay, {kMidnight + hours{23}, kMidnight + days{9}, huge});
    ExpectBalance(OfTokyo(source));
    EXPECT_THAT(Overview(source), HasSubstr("100000.0 %"));
}

// Everything that a source can give as text is its name.
TEST(Page, TakesNothingFromTheSourceAsMarkup)
{
    testing_support::CScriptedSource source("<b>\"'&");
    EXPECT_THAT(Overview(source), Not(HasSubstr("<b>")));
    EXPECT_THAT(OfTokyo(source), Not(HasSubstr("<b>")));
}

} // namespace
} // namespace reportd
