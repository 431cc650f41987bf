#include "server/page/Frame.h"
#include "server/page/Page.h"

namespace reportd {
namespace {

struct Company {
    DayView today;
    DayView tomorrow; // its peaks
    std::optional<Reading> reading;
};

Company LoadCompany(const PageContext& page, int siteNumber)
{
    const std::chrono::year_month_day today = page.Today();
    Company company{LoadDay(page.source, siteNumber, today, page.now),
                    LoadPeaks(page.source, siteNumber, DaysAfter(today, 1), page.now),
                    {}};
    company.reading = NewestReading(company.today);
    if (!company.reading) { // as in the first minutes of a day
        company.reading = NewestReading(LoadDay(page.source, siteNumber, DaysAfter(today, -1), page.now));
    }
    return company;
}

// The usage rate as the filled part of a bar.
void WriteBar(PageContext& page, unsigned tenths)
{
    page.html.Element(
        "svg",
        {{"xmlns", "http://www.w3.org/2000/svg"},
         {"class", std::string("bar ").append(StyleOf(BandOf(tenths)))},
         {"viewBox", "0 0 1000 10"},
         {"preserveAspectRatio", "none"},
         {"aria-hidden", "true"}},
        [&] {
            page.html.Empty("rect", {{"class", "whole"}, {"width", "1000"}, {"height", "10"}});
            page.html.Empty("rect",
                            {{"class", "used"}, {"width", std::to_string(std::min(tenths, 1000U))}, {"height", "10"}});
        });
}

void WriteNow(PageContext& page, const Company& company)
{
    chart::CMarkup& html = page.html;
    const std::optional<Reading>& reading = company.reading;
    const std::optional<unsigned> tenths = reading ? reading->tenths : std::nullopt;
    html.Element("p", {{"class", "headline"}}, [&] { WriteRate(page, tenths); });
    if (tenths) {
        WriteBar(page, *tenths);
        const std::string hour = IntervalText(reading->supply->start, reading->supply->end, page.language);
        html.Element("p", {{"class", "remark"}}, Filled(TextId::kUsageRateOfHour, page.language, {hour}));
    }
    html.Element("dl", {{"class", "now"}}, [&] {
        html.Element("dt", {}, page.Text(TextId::kNewestDemand));
        html.Element("dd", {}, [&] {
            if (!reading) {
                html.Element("span", {{"class", "missing"}}, page.Text(TextId::kNoDemand));
                return;
            }
            html.Element("span", {{"class", "value"}}, MegawattText(reading->record.value, page.language));
            html.Text(" ");
            html.Element("span", {{"class", "remark"}},
                         [&] { WriteTime(page, reading->record.start, MomentText(page, *reading)); });
        });
    });
}

void WritePeakCell(PageContext& page, const std::optional<ReportRecord>& peak)
{
    if (!peak) {
        WriteMissing(page);
        return;
    }
    page.html.Element("span", {{"class", "value"}}, MegawattText(peak->value, page.language));
    page.html.Element("span", {{"class", "remark"}}, IntervalText(peak->start, peak->end, page.language));
}

void WritePeakRateCell(PageContext& page, const DayView& day)
{
    if (const std::optional<unsigned> tenths = PeakRate(day)) {
        WriteRate(page, tenths);
    } else {
        WriteMissing(page);
    }
}

// A row with a cell for today and one for tomorrow.
void WritePeakRow(PageContext& page, TextId name, const Company& company,
                  const std::function<void(const DayView&)>& writeCell)
{
    page.html.Element("tr", {}, [&] {
        page.html.Element("th", {{"scope", "row"}}, page.Text(name));
        for (const DayView* const day : {&company.today, &company.tomorrow}) {
            page.html.Element("td", {}, [&] { writeCell(*day); });
        }
    });
}

void WritePeaks(PageContext& page, const Company& company, std::string_view name)
{
    chart::CMarkup& html = page.html;
    html.Element("table", {{"class", "peaks"}}, [&] {
        html.Element("caption", {{"class", "unseen"}},
                     Filled(TextId::kDayOf, page.language, {name, page.Text(TextId::kPeakDemand)}));
        html.Element("thead", {}, [&] {
            html.Element("tr", {}, [&] {
                html.Element("td", {}, "");
                html.Element("th", {{"scope", "col"}}, page.Text(TextId::kToday));
                html.Element("th", {{"scope", "col"}}, page.Text(TextId::kTomorrow));
            });
        });
        html.Element("tbody", {}, [&] {
            WritePeakRow(page, TextId::kPeakDemand, company,
                         [&page](const DayView& day) { WritePeakCell(page, day.peakDemand); });
            WritePeakRow(page, TextId::kPeakSupply, company,
                         [&page](const DayView& day) { WritePeakCell(page, day.peakSupply); });
            WritePeakRow(page, TextId::kUsageRate, company,
                         [&page](const DayView& day) { WritePeakRateCell(page, day); });
        });
    });
}

void WriteSmallChart(PageContext& page, const DayView& day, std::string_view id)
{
    if (!day.HasCurves()) {
        return;
    }
    page.html.Markup(chart::DayChartSvg(
        CurvesOf(day, {}, page.now), {.title = std::string(page.Text(TextId::kSparkTitle))},
        {.width = 360, .height = 90, .id = std::string(id) + "-chart", .isStandAlone = false, .hasAxes = false}));
}

void WriteCard(PageContext& page, const catalogue::Company& entry)
{
    chart::CMarkup& html = page.html;
    const Company company = LoadCompany(page, entry.siteNumber);
    const std::string_view name = CompanyName(entry.siteNumber, page.language);
    const std::string address = AddressOf(CompanyPath(entry.siteNumber), "", page.language);
    const Freshness freshness = FreshnessOf(company.today, page.IsSample(), page.now, page.staleAfter);
    const bool isWarning = freshness == Freshness::kStale || freshness == Freshness::kMissing;
    html.Element("article",
                 {{"class", freshness == Freshness::kStale ? "card stale" : "card"}, {"id", entry.key.Narrow()}}, [&] {
                     html.Element("h2", {}, [&] { html.Element("a", {{"href", address}}, name); });
                     // A warning comes before the figures that it is about.
                     if (isWarning) {
                         WriteFreshness(page, company.today);
                     }
                     WriteNow(page, company);
                     WriteSmallChart(page, company.today, entry.key.Narrow());
                     WritePeaks(page, company, name);
                     if (!isWarning) {
                         WriteFreshness(page, company.today);
                     }
                 });
}

} // namespace

std::string OverviewPage(CFigureSource& source, LocalTime now, Language language, std::chrono::minutes staleAfter)
{
    PageContext page{source, now, language, staleAfter};
    chart::CMarkup& html = page.html;
    return WritePage(page, {.title = std::string(page.Text(TextId::kSiteTitle)), .path = "/"}, [&] {
        html.Element("h1", {}, page.Text(TextId::kSiteTitle));
        html.Element("p", {{"class", "as-of"}}, [&] {
            WriteTime(page, now, Filled(TextId::kAsOf, language, {DateText(page.Today(), language), ClockText(now)}));
        });
        html.Element("div", {{"class", "cards"}}, [&] {
            for (const catalogue::Company& company : catalogue::kCompanies) {
                WriteCard(page, company);
            }
        });
    });
}

} // namespace reportd
