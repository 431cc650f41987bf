#include "ctl/Chart.h"

#include "chart/DayChartPage.h"
#include "chart/DayChartText.h"
#include "ctl/Colour.h"
#include "ctl/CompanyDay.h"
#include "ctl/Json.h"
#include "ctl/OutputFile.h"
#include "ctl/TimeText.h"
#include "ctl/Verbs.h"
#include "platform/Clock.h"
#include "platform/Text.h"

#include <algorithm>
#include <memory>

namespace ctl {

namespace {

constexpr int kColumnsWithoutTerminal = 80;

struct ChartOptions {
    Selection selection;
    std::string svgFile;
    std::string htmlFile;
    bool isJson = false;
};

// Today, as the files have it, and the exit code that their faults make.
struct Today {
    CompanyDay day;
    SYSTEMTIME now = {};
    int exitCode = kExitSuccess;
};

const catalogue::Company& CompanyOf(const Selection& selection)
{
    return *std::find_if(catalogue::kCompanies.begin(), catalogue::kCompanies.end(),
                         [&](const catalogue::Company& company) { return company.key.Narrow() == selection.company; });
}

Today ReadToday(const Selection& selection, const Console& console)
{
    const std::vector<KnownFile> files = ReadDataFiles(selection);
    const int exitCode = ReportFaults(files, console);
    SYSTEMTIME now{};
    platform::ReadLocalClock(&now);
    CompanyDay day = DayOf(CompanyOf(selection), files, now);
    if (!day.HasFigures()) {
        throw CFailure(platform::FormatText(L"no figures of %s for today (%s) in %s", day.company.name.Wide(),
                                            DayText(now), FolderOf(selection)));
    }
    return {std::move(day), now, exitCode};
}

void WriteText(const Today& today, const Console& console)
{
    const int columns = console.terminal.Columns();
    const bool allowsColour = console.terminal.AllowsColour();
    const chart::TextOptions options{
        .columns = columns == 0 ? kColumnsWithoutTerminal : std::max(columns, chart::kMinTextColumns),
        .isUnicode = console.terminal.ShowsUnicode(),
        .colours = allowsColour ? chart::TextColours{kBlue, kYellow, kGreen, kFaint, kPlain} : chart::TextColours{}};
    const chart::DayLabels labels = LabelsOf(today.day, today.now);
    console.out << labels.title << "\n" << DayChartText(CurvesOf(today.day, today.now), labels, options);
}

Json JsonRecords(const std::vector<_AmporaOneData>& records)
{
    Json list = Json::array();
    std::transform(records.begin(), records.end(), std::back_inserter(list), JsonRecord);
    return list;
}

void WriteValues(const Today& today, const Console& console)
{
    const auto peak = [](const std::optional<_AmporaOneData>& record) { return record ? JsonRecord(*record) : Json(); };
    WriteJson(console, "chart",
              {{"company", today.day.company.key.Narrow()},
               {"date", platform::EncodeUtf8(DayText(today.now))},
               {"now", JsonTime(today.now)},
               {"instant", JsonRecords(today.day.instant)},
               {"actual", JsonRecords(today.day.actual)},
               {"estimated", JsonRecords(today.day.estimated)},
               {"peakSupply", peak(today.day.peakSupply)},
               {"peakDemand", peak(today.day.peakDemand)}});
}

int Chart(const ChartOptions& options, const Console& console)
{
    const Today today = ReadToday(options.selection, console);
    const chart::DayCurves curves = CurvesOf(today.day, today.now);
    const chart::DayLabels labels = LabelsOf(today.day, today.now);
    if (!options.svgFile.empty()) {
        WriteOutputFile(options.svgFile, DayChartSvg(curves, labels, {}) + "\n", console);
    } else if (!options.htmlFile.empty()) {
        WriteOutputFile(options.htmlFile, DayChartPage(curves, labels), console);
    } else if (options.isJson) {
        WriteValues(today, console);
    } else {
        WriteText(today, console);
    }
    return today.exitCode;
}

} // namespace

int ShowChart(const Selection& selection, const Console& console)
{
    const Today today = ReadToday(selection, console);
    WriteText(today, console);
    return today.exitCode;
}

void AddChart(CCommandLine& program)
{
    const auto options = std::make_shared<ChartOptions>();
    CLI::App& verb = program.AddVerb("chart", "Draw today's demand and forecast of a company",
                                     "Bars are the demand, dots the forecast, dotted lines the peaks.",
                                     "chart tokyo\nchart tokyo --html tokyo.html",
                                     [options](const Console& console) { return Chart(*options, console); });
    AddCompany(verb, options->selection).description("The company")->required();
    CLI::Option& svg = AddOutputFile(verb, "--svg", options->svgFile, "Draw into this file, as SVG");
    CLI::Option& html = AddOutputFile(verb, "--html", options->htmlFile, "Draw into this file, as a page");
    svg.excludes(&html);
    AddJson(verb, options->isJson).excludes(&svg)->excludes(&html);
    AddFolder(verb, options->selection);
}

} // namespace ctl
