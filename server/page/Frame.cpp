#include "server/page/Frame.h"

#include "server/TimeText.h"

#include <limits>

namespace reportd {
namespace {

constexpr std::string_view kRenewalSeconds = "60";
// A flash of lightning on a square.
constexpr std::string_view kIcon =
    "data:image/svg+xml,%3Csvg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 32 32'%3E%3Crect width='32' height='32' "
    "rx='7' fill='%231558b0'/%3E%3Cpath d='M18 4 8 18h7l-1 10 10-14h-7z' fill='%23fff'/%3E%3C/svg%3E";

void WriteHead(PageContext& page, const PageFrame& frame)
{
    chart::CMarkup& html = page.html;
    html.Element("head", {}, [&] {
        html.Empty("meta", {{"charset", "utf-8"}});
        html.Element("title", {}, frame.title);
        html.Empty("meta", {{"name", "viewport"}, {"content", "width=device-width, initial-scale=1"}});
        html.Empty("meta", {{"name", "color-scheme"}, {"content", "light dark"}});
        html.Empty("link", {{"rel", "icon"}, {"href", kIcon}});
        html.Empty("link", {{"rel", "stylesheet"}, {"href", "/page.css"}});
        html.Element("script", {{"src", "/page.js"}, {"defer", "defer"}}, "");
    });
}

void WriteHeader(PageContext& page, const PageFrame& frame)
{
    chart::CMarkup& html = page.html;
    const Language other = page.language == Language::kEnglish ? Language::kJapanese : Language::kEnglish;
    html.Element("a", {{"class", "skip"}, {"href", "#main"}}, page.Text(TextId::kSkip));
    html.Element("header", {{"class", "site"}}, [&] {
        html.Element("a", {{"class", "home"}, {"href", AddressOf("/", "", page.language)}},
                     page.Text(TextId::kSiteTitle));
        html.Element("a",
                     {{"class", "language"},
                      {"href", AddressOf(frame.path, frame.query, other)},
                      {"hreflang", CodeOf(other)},
                      {"lang", CodeOf(other)}},
                     page.Text(TextId::kOtherLanguage));
    });
    html.Element("p", {{"class", "notice"}, {"id", "renewal-failed"}, {"role", "status"}, {"hidden", "hidden"}},
                 page.Text(TextId::kRenewalFailed));
}

void WriteFooter(PageContext& page)
{
    chart::CMarkup& html = page.html;
    html.Element("footer", {{"class", "site"}}, [&] {
        html.Element("p", {}, page.Text(TextId::kBandLegend));
        if (!page.IsSample()) {
            html.Element("p", {}, page.Text(TextId::kJapanTime));
            html.Element("p", {}, page.Text(TextId::kAbout));
        }
    });
}

chart::DayValue ValueOf(const ReportRecord& record)
{
    constexpr auto kHighest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    const LocalTime day = std::chrono::floor<std::chrono::days>(record.start);
    const auto start = std::chrono::floor<minutes>(record.start - day);
    const auto length = std::min<minutes>(std::chrono::ceil<minutes>(record.end - record.start), minutes{24 * 60});
    return {static_cast<int>(start.count()), static_cast<int>(length.count()),
            static_cast<std::int64_t>(std::min(record.value, kHighest))};
}

std::vector<chart::DayValue> ValuesOf(const std::vector<ReportRecord>& records)
{
    std::vector<chart::DayValue> values;
    values.reserve(records.size());
    for (const ReportRecord& record : records) {
        values.push_back(ValueOf(record));
    }
    return values;
}

std::optional<chart::DayValue> ValueOf(const std::optional<ReportRecord>& record)
{
    return record ? std::optional(ValueOf(*record)) : std::nullopt;
}

// Not every company measures every 5 minutes.
std::vector<chart::DayValue> MeasuredOf(const DayView& day)
{
    return ValuesOf(day.instant.empty() ? day.actual : day.instant);
}

} // namespace

std::string WritePage(PageContext& page, const PageFrame& frame, const std::function<void()>& writeMain)
{
    chart::CMarkup& html = page.html;
    html.Markup("<!DOCTYPE html>\n");
    html.Element("html", {{"lang", CodeOf(page.language)}, {"xmlns", "http://www.w3.org/1999/xhtml"}}, [&] {
        WriteHead(page, frame);
        html.Element("body", {}, [&] {
            WriteHeader(page, frame);
            html.Element("main",
                         {{"id", "main"},
                          {"tabindex", "-1"},
                          {"data-renewal-seconds", frame.changesWithTime ? kRenewalSeconds : "0"}},
                         [&] {
                             if (page.IsSample()) {
                                 html.Element("p", {{"class", "notice sample"}}, page.Text(TextId::kSampleData));
                             }
                             writeMain();
                         });
            WriteFooter(page);
        });
    });
    html.Markup("\n");
    return html.Written();
}

std::string AddressOf(std::string_view path, std::string_view query, Language language)
{
    std::string address(path);
    address += "?";
    if (!query.empty()) {
        address.append(query).append("&");
    }
    return address.append("lang=").append(CodeOf(language));
}

std::string CompanyPath(int siteNumber)
{
    const catalogue::Company* const company = catalogue::FindCompany(siteNumber);
    return std::string("/company/").append(company == nullptr ? "" : company->key.Narrow());
}

void WriteTime(PageContext& page, LocalTime time, std::string_view text)
{
    page.html.Element("time", {{"datetime", JapanTimeText(time)}}, text);
}

void WriteRate(PageContext& page, std::optional<unsigned> tenths)
{
    if (!tenths) {
        page.html.Element("span", {{"class", "rate unknown"}}, page.Text(TextId::kUsageRateUnknown));
        return;
    }
    const UsageBand band = BandOf(*tenths);
    page.html.Element("span", {{"class", "rate"}}, [&] {
        page.html.Element("span", {{"class", "value"}}, RateText(*tenths, page.language));
        page.html.Text(" ");
        page.html.Element("span", {{"class", std::string("band ").append(StyleOf(band))}}, NameOf(band, page.language));
    });
}

std::string MomentText(const PageContext& page, const Reading& reading)
{
    const ReportRecord& record = reading.record;
    const std::string age = AgeText(page.now - reading.Moment(), page.language);
    if (reading.isInstant) {
        return Filled(TextId::kMeasuredAt, page.language, {ClockText(record.start), age});
    }
    return Filled(TextId::kMeanOf, page.language, {IntervalText(record.start, record.end, page.language), age});
}

void WriteMissing(PageContext& page)
{
    page.html.Element("abbr", {{"class", "missing"}, {"title", page.Text(TextId::kMissingMeaning)}},
                      page.Text(TextId::kMissing));
}

void WriteFreshness(PageContext& page, const DayView& day)
{
    chart::CMarkup& html = page.html;
    const Freshness freshness = FreshnessOf(day, page.IsSample(), page.now, page.staleAfter);
    const auto writeMoment = [&](TextId text, LocalTime moment) {
        const std::string when =
            DayOf(moment) == page.Today() ? ClockText(moment) : DateText(DayOf(moment)) + " " + ClockText(moment);
        WriteTime(page, moment, Filled(text, page.language, {when}));
        html.Text(Filled(TextId::kAge, page.language, {AgeText(page.now - moment, page.language)}));
    };
    html.Element("p", {{"class", freshness == Freshness::kStale ? "freshness stale" : "freshness"}}, [&] {
        if (freshness == Freshness::kSample || freshness == Freshness::kMissing) {
            html.Text(page.Text(freshness == Freshness::kSample ? TextId::kComputed : TextId::kNothingReceived));
            return;
        }
        if (freshness == Freshness::kStale) {
            html.Element("strong", {{"class", "mark"}}, page.Text(TextId::kNotCurrent));
            html.Text(" ");
        }
        if (day.state.published) {
            writeMoment(TextId::kPublished, *day.state.published);
        }
        if (day.state.observed) {
            html.Text(day.state.published ? page.Text(TextId::kComma) : "");
            writeMoment(TextId::kConfirmed, *day.state.observed);
        }
    });
}

chart::DayCurves CurvesOf(const DayView& day, const DayView& dayBefore, LocalTime now)
{
    chart::DayCurves curves{.measured = MeasuredOf(day),
                            .yesterday = MeasuredOf(dayBefore),
                            .forecast = ValuesOf(day.estimated),
                            .supply = ValuesOf(day.supply),
                            .peakDemand = ValueOf(day.peakDemand),
                            .peakSupply = ValueOf(day.peakSupply)};
    if (DayOf(now) == day.date) {
        curves.nowMinute = static_cast<int>((now - LocalTime(std::chrono::local_days(day.date))) / minutes{1});
    }
    return curves;
}

} // namespace reportd
