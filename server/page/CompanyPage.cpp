#include "server/page/Frame.h"
#include "server/page/Page.h"
#include "server/TimeText.h"

#include <array>
#include <map>
#include <stdexcept>

namespace reportd {
namespace {

// A day of one company, as the page shows it.
struct Shown {
    DayView day;
    DayView dayBefore;
    std::string_view company;
    std::string date; // in words
};

std::string QueryOf(const PageContext& page, year_month_day date)
{
    // Without a date a page stays with today when the day changes.
    return date == page.Today() ? "" : "date=" + DateText(date);
}

std::string CsvAddress(const Shown& shown, std::string_view kind)
{
    const std::string date = DateText(shown.day.date);
    return std::string("/v1/series?company=")
        .append(catalogue::FindCompany(shown.day.siteNumber)->key.Narrow())
        .append("&kind=")
        .append(kind)
        .append("&from=" + date + "&to=" + date + "&format=csv");
}

void WriteDayLink(PageContext& page, const Shown& shown, year_month_day date, TextId text, std::string_view relation)
{
    const std::string address = AddressOf(CompanyPath(shown.day.siteNumber), QueryOf(page, date), page.language);
    page.html.Element("a", {{"href", address}, {"rel", relation}}, page.Text(text));
}

void WriteDayForm(PageContext& page, const Shown& shown, year_month_day last)
{
    chart::CMarkup& html = page.html;
    html.Element("form", {{"action", CompanyPath(shown.day.siteNumber)}, {"method", "get"}}, [&] {
        html.Element("label", {{"for", "date"}}, page.Text(TextId::kChooseDay));
        html.Empty("input", {{"type", "date"},
                             {"id", "date"},
                             {"name", "date"},
                             {"value", DateText(shown.day.date)},
                             {"max", DateText(last)},
                             {"required", "required"}});
        html.Empty("input", {{"type", "hidden"}, {"name", "lang"}, {"value", CodeOf(page.language)}});
        html.Element("button", {{"type", "submit"}}, page.Text(TextId::kShow));
    });
}

void WriteNavigation(PageContext& page, const Shown& shown)
{
    chart::CMarkup& html = page.html;
    const year_month_day date = shown.day.date;
    const year_month_day tomorrow = DaysAfter(page.Today(), 1);
    html.Element("nav", {{"class", "days"}, {"aria-label", page.Text(TextId::kChooseDay)}}, [&] {
        WriteDayLink(page, shown, DaysAfter(date, -1), TextId::kDayBefore, "prev");
        if (date != page.Today()) {
            WriteDayLink(page, shown, page.Today(), TextId::kToday, "bookmark");
        }
        if (date < tomorrow) {
            WriteDayLink(page, shown, DaysAfter(date, 1), TextId::kDayAfter, "next");
        }
        WriteDayForm(page, shown, tomorrow);
    });
}

void WriteKeyFigure(PageContext& page, std::string_view name, const std::function<void()>& writeValue,
                    std::string_view remark)
{
    page.html.Element("div", {{"class", "figure"}}, [&] {
        page.html.Element("dt", {}, name);
        page.html.Element("dd", {}, [&] {
            writeValue();
            if (!remark.empty()) {
                page.html.Element("span", {{"class", "remark"}}, remark);
            }
        });
    });
}

void WritePeak(PageContext& page, TextId name, const std::optional<ReportRecord>& peak)
{
    WriteKeyFigure(
        page, page.Text(name),
        [&] {
            if (peak) {
                page.html.Element("span", {{"class", "value"}}, MegawattText(peak->value, page.language));
            } else {
                WriteMissing(page);
            }
        },
        peak ? IntervalText(peak->start, peak->end, page.language) : std::string(page.Text(TextId::kNotPublished)));
}

void WriteReading(PageContext& page, const Shown& shown)
{
    const std::optional<Reading> reading = NewestReading(shown.day);
    if (!reading || shown.day.date != page.Today()) {
        return;
    }
    WriteKeyFigure(
        page, page.Text(TextId::kNewestDemand),
        [&] {
            page.html.Element("span", {{"class", "value"}}, MegawattText(reading->record.value, page.language));
            page.html.Text(" ");
            WriteRate(page, reading->tenths);
        },
        MomentText(page, *reading));
}

void WriteKeyFigures(PageContext& page, const Shown& shown)
{
    const std::vector<UsageRate>& rates = shown.day.rates;
    const auto highest = std::max_element(rates.begin(), rates.end(), [](const UsageRate& one, const UsageRate& other) {
        return one.tenths < other.tenths;
    });
    page.html.Element("dl", {{"class", "figures"}}, [&] {
        WriteReading(page, shown);
        WritePeak(page, TextId::kPeakDemand, shown.day.peakDemand);
        WritePeak(page, TextId::kPeakSupply, shown.day.peakSupply);
        const bool isKnown = highest != rates.end();
        WriteKeyFigure(
            page, page.Text(TextId::kHighestRate),
            [&] { WriteRate(page, isKnown ? std::optional(highest->tenths) : std::nullopt); },
            isKnown ? IntervalText(highest->start, highest->end, page.language) : "");
    });
}

std::string DescriptionOf(const PageContext& page, const DayView& day)
{
    if (day.instant.empty()) {
        return std::string(page.Text(TextId::kChartDescriptionEmpty));
    }
    const auto [lowest, highest] =
        std::minmax_element(day.instant.begin(), day.instant.end(),
                            [](const ReportRecord& one, const ReportRecord& other) { return one.value < other.value; });
    return Filled(TextId::kChartDescription, page.language,
                  {ClockText(day.instant.back().start), NumberText(lowest->value), NumberText(highest->value)});
}

chart::DayLabels LabelsOf(const PageContext& page, const Shown& shown)
{
    const auto megawatts = [](const std::optional<ReportRecord>& peak) { return peak ? NumberText(peak->value) : ""; };
    return {.title = Filled(TextId::kChartTitle, page.language, {shown.company, shown.date}),
            .description = DescriptionOf(page, shown.day),
            .unit = std::string(page.Text(TextId::kMegawattUnit)),
            .measured = std::string(page.Text(TextId::kDemand)),
            .yesterday = std::string(page.Text(TextId::kDayBeforeCurve)),
            .forecast = std::string(page.Text(TextId::kForecast)),
            .supply = std::string(page.Text(TextId::kSupply)),
            .peakDemand = Filled(TextId::kPeakDemandLabel, page.language, {megawatts(shown.day.peakDemand)}),
            .peakSupply = Filled(TextId::kPeakSupplyLabel, page.language, {megawatts(shown.day.peakSupply)}),
            .now = Filled(TextId::kNowLabel, page.language, {ClockText(page.now)})};
}

// For a chart without room for names beside its lines.
chart::DayLabels ShortLabels(const PageContext& page, const Shown& shown, chart::DayLabels labels)
{
    if (shown.day.peakDemand) {
        labels.peakDemand = MegawattText(shown.day.peakDemand->value, page.language);
    }
    if (shown.day.peakSupply) {
        labels.peakSupply = MegawattText(shown.day.peakSupply->value, page.language);
    }
    return labels;
}

void WriteLegend(PageContext& page, const chart::DayCurves& curves)
{
    struct Curve {
        const std::vector<chart::DayValue>& values;
        std::string_view style;
        TextId name;
    };
    const std::array legend = {
        Curve{curves.measured, "measured", TextId::kDemand}, Curve{curves.forecast, "forecast", TextId::kForecast},
        Curve{curves.supply, "supply", TextId::kSupply}, Curve{curves.yesterday, "yesterday", TextId::kDayBeforeCurve}};
    page.html.Element("ul", {{"class", "legend"}}, [&] {
        for (const Curve& curve : legend) {
            if (!curve.values.empty()) {
                page.html.Element("li", {{"class", curve.style}}, page.Text(curve.name));
            }
        }
    });
}

void WriteChart(PageContext& page, const Shown& shown)
{
    chart::CMarkup& html = page.html;
    const chart::DayCurves curves = CurvesOf(shown.day, shown.dayBefore, page.now);
    const chart::DayLabels labels = LabelsOf(page, shown);
    html.Element("figure", {{"class", "chart"}, {"data-read-label", page.Text(TextId::kReadLabel)}}, [&] {
        WriteLegend(page, curves);
        // The style sheet shows the one that fits.
        html.Element("div", {{"class", "plot wide"}}, [&] {
            html.Markup(chart::DayChartSvg(curves, labels,
                                           {.width = 1000, .height = 380, .id = "wide", .isStandAlone = false}));
        });
        html.Element("div", {{"class", "plot narrow"}}, [&] {
            html.Markup(chart::DayChartSvg(curves, ShortLabels(page, shown, labels),
                                           {.width = 360, .height = 300, .id = "narrow", .isStandAlone = false}));
        });
        html.Element("p", {{"class", "read-out"}, {"hidden", "hidden"}}, page.Text(TextId::kReadHint));
    });
}

// A table whose rows are times; each column is a series.
struct Column {
    TextId name;
    std::string_view unit;
    std::string_view kind; // in the address of its CSV
    std::map<LocalTime, std::string> cells;
};

Column ColumnOf(const PageContext& page, TextId name, std::string_view kind, const std::vector<ReportRecord>& records)
{
    Column column{name, page.Text(TextId::kMegawattUnit), kind, {}};
    for (const ReportRecord& record : records) {
        column.cells.emplace(record.start, NumberText(record.value));
    }
    return column;
}

std::vector<Column> HourlyColumns(const PageContext& page, const DayView& day)
{
    std::vector<Column> columns = {
        ColumnOf(page, TextId::kForecast, InfoOf(Series::kEstimatedUsage).key, day.estimated),
        ColumnOf(page, TextId::kActual, InfoOf(Series::kActualUsage).key, day.actual),
        ColumnOf(page, TextId::kSupply, InfoOf(Series::kSupply).key, day.supply),
        Column{TextId::kUsageRate, "%", "usage_rate", {}}};
    for (const UsageRate& rate : day.rates) {
        columns.back().cells.emplace(rate.start, RateNumber(rate.tenths));
    }
    return columns;
}

std::vector<Column> InstantColumns(const PageContext& page, const DayView& day)
{
    std::vector<Column> columns = {ColumnOf(page, TextId::kDemand, InfoOf(Series::kInstantUsage).key, day.instant)};
    if (!day.solar.empty()) {
        columns.push_back(ColumnOf(page, TextId::kSolar, InfoOf(Series::kSolar).key, day.solar));
    }
    if (!day.wind.empty()) {
        columns.push_back(ColumnOf(page, TextId::kWind, InfoOf(Series::kWind).key, day.wind));
    }
    return columns;
}

void WriteHeadings(PageContext& page, const std::vector<Column>& columns)
{
    chart::CMarkup& html = page.html;
    html.Element("thead", {}, [&] {
        html.Element("tr", {}, [&] {
            html.Element("th", {{"scope", "col"}}, page.Text(TextId::kTime));
            for (const Column& column : columns) {
                const std::string_view name = page.Text(column.name);
                html.Element("th", {{"scope", "col"}, {"data-name", name}, {"data-unit", column.unit}}, [&] {
                    html.Text(name);
                    html.Text(" ");
                    html.Element("span", {{"class", "unit"}}, column.unit);
                });
            }
        });
    });
}

void WriteRow(PageContext& page, LocalTime start, std::string_view name, const std::vector<Column>& columns)
{
    chart::CMarkup& html = page.html;
    const auto minute = (start - std::chrono::floor<days>(start)) / minutes{1};
    html.Element("tr", {{"data-minute", std::to_string(minute)}}, [&] {
        html.Element("th", {{"scope", "row"}}, [&] { WriteTime(page, start, name); });
        for (const Column& column : columns) {
            html.Element("td", {}, [&] {
                const auto cell = column.cells.find(start);
                if (cell == column.cells.end()) {
                    WriteMissing(page);
                } else {
                    html.Text(cell->second);
                }
            });
        }
    });
}

// rows: start of each and how it is called.
void WriteTable(PageContext& page, const Shown& shown, TextId name, const std::vector<Column>& columns,
                const std::map<LocalTime, std::string>& rows)
{
    chart::CMarkup& html = page.html;
    // Within reach of the keyboard, since it may have to be scrolled.
    html.Element(
        "div", {{"class", "table"}, {"tabindex", "0"}, {"role", "group"}, {"aria-label", page.Text(name)}}, [&] {
            html.Element("table", {{"class", "values"}, {"id", name == TextId::kHourlyTable ? "hourly" : "instant"}},
                         [&] {
                             html.Element("caption", {}, page.Text(name));
                             WriteHeadings(page, columns);
                             html.Element("tbody", {}, [&] {
                                 for (const auto& [start, text] : rows) {
                                     WriteRow(page, start, text, columns);
                                 }
                             });
                         });
        });
    html.Element("p", {{"class", "download"}}, [&] {
        html.Text(page.Text(TextId::kDownload));
        for (const Column& column : columns) {
            html.Text(" ");
            html.Element("a", {{"href", CsvAddress(shown, column.kind)}, {"download", ""}}, page.Text(column.name));
        }
    });
}

void WriteHourly(PageContext& page, const Shown& shown)
{
    std::map<LocalTime, std::string> rows;
    for (LocalTime start{local_days(shown.day.date)}; DayOf(start) == shown.day.date; start += minutes{60}) {
        rows.emplace(start, IntervalText(start, start + minutes{60}, page.language));
    }
    const std::vector<Column> columns = HourlyColumns(page, shown.day);
    for (const Column& column : columns) {
        for (const auto& [start, text] : column.cells) {
            rows.emplace(start, ClockText(start)); // one that starts at no full hour
        }
    }
    WriteTable(page, shown, TextId::kHourlyTable, columns, rows);
}

void WriteInstant(PageContext& page, const Shown& shown)
{
    const std::vector<Column> columns = InstantColumns(page, shown.day);
    std::map<LocalTime, std::string> rows;
    for (const Column& column : columns) {
        for (const auto& [start, text] : column.cells) {
            rows.emplace(start, ClockText(start));
        }
    }
    if (rows.empty()) {
        return;
    }
    page.html.Element("details", {{"id", "every-5-minutes"}}, [&] {
        page.html.Element("summary", {}, Filled(TextId::kInstantSummary, page.language, {std::to_string(rows.size())}));
        WriteTable(page, shown, TextId::kInstantTable, columns, rows);
    });
}

void WriteDay(PageContext& page, const Shown& shown)
{
    page.html.Element("h1", {}, shown.company);
    page.html.Element("p", {{"class", "as-of"}},
                      [&] { WriteTime(page, LocalTime(local_days(shown.day.date)), shown.date); });
    WriteNavigation(page, shown);
    if (shown.day.HasFigures() || shown.day.state.observed) {
        WriteFreshness(page, shown.day);
    }
    if (!shown.day.HasFigures()) {
        const bool isPast = shown.day.date < page.Today();
        page.html.Element("p", {{"class", "empty"}}, page.Text(isPast ? TextId::kNoFigures : TextId::kNoFiguresYet));
        return;
    }
    WriteKeyFigures(page, shown);
    WriteChart(page, shown);
    WriteHourly(page, shown);
    WriteInstant(page, shown);
}

} // namespace

std::string CompanyPage(CFigureSource& source, int siteNumber, year_month_day date, LocalTime now, Language language,
                        std::chrono::minutes staleAfter)
{
    if (catalogue::FindCompany(siteNumber) == nullptr) {
        throw std::invalid_argument("no company has this number");
    }
    PageContext page{source, now, language, staleAfter};
    const Shown shown{LoadDay(source, siteNumber, date, now), LoadDay(source, siteNumber, DaysAfter(date, -1), now),
                      CompanyName(siteNumber, language), DateText(date, language)};
    const PageFrame frame{.title = Filled(TextId::kDayOf, language, {shown.company, shown.date}),
                          .path = CompanyPath(siteNumber),
                          .query = QueryOf(page, date),
                          .changesWithTime = date >= page.Today()};
    return WritePage(page, frame, [&] { WriteDay(page, shown); });
}

} // namespace reportd
