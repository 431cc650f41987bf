#include "server/ReportRouter.h"

#include "format/Catalogue.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iomanip>
#include <optional>
#include <sstream>

namespace reportd {
namespace {

// What a target asks for.
struct ReportRequest {
    const catalogue::Company* company;
    const catalogue::Kind* kind;
    std::chrono::year_month_day date;
};

// Takes the text up to the separator, and the separator, off the front; all of it when there is no separator.
std::string_view TakeUpTo(std::string_view& text, char separator)
{
    const std::size_t length = std::min(text.find(separator), text.size());
    const std::string_view taken = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
    return taken;
}

// A number of exactly so many decimal digits, off the front.
std::optional<int> TakeNumber(std::string_view& text, std::size_t digits)
{
    const std::string_view number = text.substr(0, digits);
    int value = 0;
    if (number.size() != digits ||
        !std::all_of(number.begin(), number.end(), [](char c) { return c >= '0' && c <= '9'; }) ||
        std::from_chars(number.data(), number.data() + number.size(), value).ec != std::errc()) {
        return {};
    }
    text.remove_prefix(digits);
    return value;
}

bool TakeWord(std::string_view& text, std::string_view word)
{
    if (!text.starts_with(word)) {
        return false;
    }
    text.remove_prefix(word.size());
    return true;
}

// "date=YYYY-MM-DD&output=xml", and a day that the calendar has.
std::optional<std::chrono::year_month_day> ParseQuery(std::string_view query)
{
    if (!TakeWord(query, "date=")) {
        return {};
    }
    const std::optional<int> year = TakeNumber(query, 4);
    const bool afterYear = TakeWord(query, "-");
    const std::optional<int> month = TakeNumber(query, 2);
    const bool afterMonth = TakeWord(query, "-");
    const std::optional<int> day = TakeNumber(query, 2);
    if (!year || !afterYear || !month || !afterMonth || !day || query != "&output=xml") {
        return {};
    }
    const std::chrono::year_month_day date{std::chrono::year{*year}, std::chrono::month{static_cast<unsigned>(*month)},
                                           std::chrono::day{static_cast<unsigned>(*day)}};
    return date.ok() ? std::optional(date) : std::nullopt;
}

// Path and query of a target that names the server as well ("http://host:port/path?query"); any other target as it is.
std::string_view WithoutServer(std::string_view target)
{
    constexpr std::string_view kScheme = "http://";
    const auto isSame = [](char wanted, char letter) {
        return (letter >= 'A' && letter <= 'Z' ? letter - 'A' + 'a' : letter) == wanted;
    };
    const std::size_t end = target.find_first_of("/?", kScheme.size());
    if (end == std::string_view::npos || end == kScheme.size() ||
        !std::equal(kScheme.begin(), kScheme.end(), target.begin(), isSame)) {
        return target;
    }
    return target.substr(end);
}

std::optional<ReportRequest> ParseTarget(std::string_view target)
{
    if (!TakeWord(target, "/")) {
        return {};
    }
    std::string_view path = TakeUpTo(target, '?');
    const std::string_view category = TakeUpTo(path, '/');
    const std::string_view companyWord = TakeUpTo(path, '/');
    const std::string_view kindWord = path;
    const auto* const company =
        std::find_if(catalogue::kCompanies.begin(), catalogue::kCompanies.end(),
                     [&](const catalogue::Company& entry) { return entry.key.Narrow() == companyWord; });
    const auto* const kind =
        std::find_if(catalogue::kKinds.begin(), catalogue::kKinds.end(), [&](const catalogue::Kind& entry) {
            return entry.category.Narrow() == category && entry.word.Narrow() == kindWord;
        });
    const std::optional<std::chrono::year_month_day> date = ParseQuery(target);
    if (company == catalogue::kCompanies.end() || kind == catalogue::kKinds.end() || !date) {
        return {};
    }
    return ReportRequest{company, kind, *date};
}

// 2012-07-02T13:00:00
void PutTime(std::ostream& stream, LocalTime time)
{
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date{day};
    const std::chrono::hh_mm_ss clock{time - day};
    stream << std::setfill('0') << std::setw(4) << static_cast<int>(date.year()) << '-' << std::setw(2)
           << static_cast<unsigned>(date.month()) << '-' << std::setw(2) << static_cast<unsigned>(date.day()) << 'T'
           << std::setw(2) << clock.hours().count() << ':' << std::setw(2) << clock.minutes().count() << ':'
           << std::setw(2) << clock.seconds().count();
}

void PutRecord(std::ostream& stream, const catalogue::Kind& kind, const ReportRecord& record)
{
    stream << "    <" << kind.item.Narrow();
    if (kind.category.Narrow() == "usage") {
        stream << " datetime=\"";
        PutTime(stream, record.start);
        stream << "\" duration=\"" << (record.end - record.start).count();
    } else {
        stream << " start=\"";
        PutTime(stream, record.start);
        stream << "\" end=\"";
        PutTime(stream, record.end);
    }
    stream << "\">" << record.value << "</" << kind.item.Narrow() << ">\n";
}

std::string FormatReport(const catalogue::Kind& kind, const std::vector<ReportRecord>& records)
{
    std::ostringstream stream;
    stream.imbue(std::locale::classic());
    stream << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<power_report>\n  <" << kind.element.Narrow() << ">\n";
    for (const ReportRecord& record : records) {
        PutRecord(stream, kind, record);
    }
    stream << "  </" << kind.element.Narrow() << ">\n</power_report>\n";
    return stream.str();
}

} // namespace

ReportAnswer AnswerReportRequest(std::string_view method, std::string_view target, LocalTime now)
{
    if (method != "GET") {
        return {.status = 405};
    }
    const std::optional<ReportRequest> request = ParseTarget(WithoutServer(target));
    if (!request) {
        return {.status = 404};
    }
    const std::vector<ReportRecord> records =
        SampleRecords(request->company->siteNumber, static_cast<Series>(request->kind->dataType), request->date, now);
    if (records.empty()) {
        return {.status = 503};
    }
    return {.status = 200, .body = FormatReport(*request->kind, records)};
}

} // namespace reportd
