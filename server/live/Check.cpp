#include "server/live/Check.h"

#include "server/live/Advice.h"
#include "server/live/Wording.h"
#include "server/retrieval/Fetcher.h"
#include "server/retrieval/PollSchedule.h"
#include "server/retrieval/UrlPattern.h"

#include <algorithm>
#include <ostream>

namespace reportd {
namespace {

using std::chrono::floor;

constexpr long kNotFound = 404;
constexpr const char* kNothing = "-";

// What was found of one company.
struct Finding {
    int siteNumber = 0;
    std::string answer = {}; // for the table
    std::string layout = kNothing;
    std::optional<PublishedFile> file = {};
    std::string problem = {}; // with what to do; empty: none
    std::string note = {};    // worth knowing; empty: nothing
};

year_month_day DayOf(LocalTime moment) { return year_month_day{floor<std::chrono::days>(moment)}; }

// The day that a file must be of. Soon after midnight an address without a day may still have yesterday's.
year_month_day ExpectedDay(const CompanySettings& company, year_month_day date, LocalTime now)
{
    const year_month_day yesterday = DayOf(now - std::chrono::days(1));
    return date == yesterday && !HasDailyUrl(company.todayUrl) && IsBeforeNewDay(now) ? yesterday : DayOf(now);
}

void ReadAnswer(const FetchAnswer& answer, const CompanySettings& company, LocalTime now, Finding* finding)
{
    if (answer.status == kNotFound && HasDailyUrl(company.todayUrl) && IsBeforeNewDay(now)) {
        finding->answer = "not yet";
        finding->note = "there is no file of today yet; new ones begin up to two hours after midnight in Japan, where "
                        "it is " +
                        TimeOfDayText(now);
        return;
    }
    if (const std::optional<std::string> problem = ProblemOf(answer)) {
        finding->answer = answer.failure.empty() ? "status " + std::to_string(answer.status) : answer.failure;
        finding->problem = *problem + ": " + AdviceOn(answer);
        return;
    }
    finding->answer = "yes";
    try {
        finding->file = ParsePublishedFile(answer.body, company.extraHeadings);
        finding->layout = "yes";
        const year_month_day expected = ExpectedDay(company, finding->file->date, now);
        CheckTimeliness(*finding->file, expected, now, company.FrozenAfter());
        if (expected != DayOf(now)) {
            finding->note = "the file is still yesterday's";
        }
    } catch (const CRefusedFile& error) {
        if (!finding->file) {
            finding->layout = "no";
        }
        finding->problem = std::string("the file was refused (") + error.what() + "): " + AdviceOn(error.Reason());
    }
}

Finding CheckCompany(const LiveSettings& settings, int siteNumber, CFetcher& fetcher, LocalTime now)
{
    const CompanySettings& company = settings.companies.at(siteNumber);
    Finding finding{.siteNumber = siteNumber};
    if (!company.isEnabled) {
        finding.answer = "not enabled";
        return finding;
    }
    FetchRequest request;
    request.url = UrlOfDay(company.todayUrl, DayOf(now));
    request.agent = company.agent;
    request.authorityFile = settings.authorityFile;
    ReadAnswer(fetcher.Fetch(request), company, now, &finding);
    if (finding.file && !finding.file->unknown.empty()) {
        std::string headings;
        for (const std::string& heading : finding.file->unknown) {
            headings += (headings.empty() ? "" : ", ") + heading;
        }
        finding.note +=
            (finding.note.empty() ? "" : "; ") + std::string("headings that mean nothing to this version: ") + headings;
    }
    if (!finding.problem.empty()) {
        finding.problem = request.url + ": " + finding.problem;
    }
    return finding;
}

// The record of a series that says most now; none when there is none.
std::optional<ReportRecord> Telling(const PublishedFile& file, const SeriesInfo& info, LocalTime now)
{
    const bool isMeasured = info.series == Series::kInstantUsage || info.series == Series::kActualUsage ||
                            info.series == Series::kSolar || info.series == Series::kWind;
    std::optional<ReportRecord> telling;
    for (const Figure& figure : file.figures) {
        const ReportRecord& record = figure.record;
        if (figure.series != info.series) {
            continue;
        }
        const bool isToday = floor<std::chrono::days>(record.start) == std::chrono::local_days(file.date);
        const bool isNow = record.start <= now && now < record.end;
        if (isMeasured || (info.isPeak && isToday) || (!info.isPeak && isNow)) {
            telling = record; // of several measured ones the last
        }
    }
    return telling;
}

std::string SeriesCell(const Finding& finding, const SeriesInfo& info, LocalTime now)
{
    const auto record = finding.file ? Telling(*finding.file, info, now) : std::nullopt;
    return record ? std::to_string(record->value) + " MW " + TimeOfDayText(record->start) : kNothing;
}

void PrintTables(const std::vector<Finding>& findings, LocalTime now, std::ostream& out)
{
    std::vector<std::vector<std::string>> companies = {
        {"company", "answers", "understood", "published", "unknown headings"}};
    for (const Finding& finding : findings) {
        const bool isRead = finding.file.has_value();
        companies.push_back({KeyOfCompany(finding.siteNumber), finding.answer, finding.layout,
                             isRead ? MomentText(finding.file->published) : kNothing,
                             isRead ? std::to_string(finding.file->unknown.size()) : kNothing});
    }
    out << AlignColumns(companies) << "\n";
    std::vector<std::vector<std::string>> series = {{"newest value"}};
    for (const Finding& finding : findings) {
        series.front().push_back(KeyOfCompany(finding.siteNumber));
    }
    for (const SeriesInfo& info : kAllSeries) {
        series.push_back({std::string(info.key)});
        for (const Finding& finding : findings) {
            series.back().push_back(SeriesCell(finding, info, now));
        }
    }
    out << AlignColumns(series);
}

} // namespace

bool CheckCompanies(const LiveSettings& settings, CFetcher& fetcher, LocalTime now, std::ostream& out)
{
    std::vector<Finding> findings;
    findings.reserve(catalogue::kCompanies.size());
    for (const catalogue::Company& company : catalogue::kCompanies) {
        findings.push_back(CheckCompany(settings, company.siteNumber, fetcher, now));
    }
    PrintTables(findings, now, out);
    bool isGood = true;
    for (const Finding& finding : findings) {
        const std::string key = KeyOfCompany(finding.siteNumber);
        if (!finding.problem.empty()) {
            out << "\n" << key << ": problem: " << finding.problem << "\n";
            isGood = false;
        }
        if (!finding.note.empty()) {
            out << "\n" << key << ": note: " << finding.note << "\n";
        }
    }
    return isGood;
}

} // namespace reportd
