#include "server/SeriesDocument.h"

#include "server/TimeText.h"
#include "server/UsageRate.h"

#include <map>

namespace reportd {
namespace {

const catalogue::Company& ParseCompany(std::string_view text)
{
    for (const catalogue::Company& company : catalogue::kCompanies) {
        if (company.key.Narrow() == text) {
            return company;
        }
    }
    throw CBadRequest("company: must be tokyo, tohoku, chubu, kansai or kyushu");
}

const SeriesInfo* ParseKind(std::string_view text)
{
    if (text == kUsageRate) {
        return nullptr;
    }
    std::string known;
    for (const SeriesInfo& info : kAllSeries) {
        if (info.key == text) {
            return &info;
        }
        known.append(info.key).append(", ");
    }
    throw CBadRequest("kind: must be one of " + known + std::string(kUsageRate));
}

year_month_day ParseDay(const std::string& name, std::string_view text)
{
    const std::optional<year_month_day> date = ParseDate(text);
    if (!date || *date < kFirstDay) {
        throw CBadRequest(name + ": must be a day of the calendar from 1970 on, as YYYY-MM-DD");
    }
    return *date;
}

std::optional<LocalTime> ParseAsOf(const std::string* text)
{
    const std::optional<LocalTime> time = text == nullptr ? std::nullopt : ParseJapanTime(*text);
    if (text != nullptr && !time) {
        throw CBadRequest("asof: must be a time in Japan as YYYY-MM-DDTHH:MM[:SS][+09:00]");
    }
    return time;
}

bool ParseFormat(const std::string* text, bool prefersTable)
{
    if (text == nullptr) {
        return prefersTable;
    }
    if (*text != "json" && *text != "csv") {
        throw CBadRequest("format: must be json or csv");
    }
    return *text == "csv";
}

// The values by name, with null for each that is missing.
std::map<std::string_view, const std::string*> CollectOnce(const Parameters& parameters)
{
    std::map<std::string_view, const std::string*> values = {{"company", nullptr}, {"kind", nullptr},
                                                             {"from", nullptr},    {"to", nullptr},
                                                             {"asof", nullptr},    {"format", nullptr}};
    for (const auto& [name, value] : parameters) {
        const auto found = values.find(name);
        if (found == values.end()) {
            throw CBadRequest("unknown parameter: company, kind, from, to, asof and format are known");
        }
        if (found->second != nullptr) {
            throw CBadRequest(std::string(found->first) + ": must be there once");
        }
        found->second = &value;
    }
    for (const std::string_view name : {"company", "kind", "from", "to"}) {
        if (values.at(name) == nullptr) {
            throw CBadRequest(std::string(name) + ": is missing");
        }
    }
    return values;
}

// "2012-07-02T13:00:00+09:00" in quotes, or null.
void PutMoment(std::string& text, std::optional<LocalTime> time)
{
    if (time) {
        text += '"';
        PutJapanTime(text, *time);
        text += '"';
    } else {
        text += "null";
    }
}

void PutKinds(std::string& text, CFigureSource& source, int siteNumber)
{
    std::string_view separator;
    for (const SeriesInfo& info : kAllSeries) {
        text.append(separator).append("\n        {\"kind\": \"").append(info.key).append("\", \"newest\": ");
        PutMoment(text, source.Newest(siteNumber, info.series));
        text += '}';
        separator = ",";
    }
}

void PutCompany(std::string& text, CFigureSource& source, const catalogue::Company& company, LocalTime now)
{
    const year_month_day today{std::chrono::floor<days>(now)};
    const DayState state = source.State(company.siteNumber, today, now);
    text.append("\n    {\n      \"company\": \"").append(company.key.Narrow());
    text.append("\",\n      \"name\": \"").append(company.name.Narrow());
    text.append("\",\n      \"today\": {\"date\": \"");
    PutDate(text, today);
    text += "\", \"published\": ";
    PutMoment(text, state.published);
    text += ", \"observed\": ";
    PutMoment(text, state.observed);
    text += "},\n      \"kinds\": [";
    PutKinds(text, source, company.siteNumber);
    text += "\n      ]\n    }";
}

} // namespace

SeriesRequest ParseSeriesRequest(const Parameters& parameters, bool prefersTable)
{
    const std::map<std::string_view, const std::string*> values = CollectOnce(parameters);
    SeriesRequest request{.company = &ParseCompany(*values.at("company")),
                          .info = ParseKind(*values.at("kind")),
                          .from = ParseDay("from", *values.at("from")),
                          .to = ParseDay("to", *values.at("to")),
                          .asOf = ParseAsOf(values.at("asof")),
                          .isTable = ParseFormat(values.at("format"), prefersTable)};
    if (request.to < request.from) {
        throw CBadRequest("to: must not be before from");
    }
    if (local_days{request.to} - local_days{request.from} >= kMaxSeriesDays) {
        throw CBadRequest("to: must be within " + std::to_string(kMaxSeriesDays.count()) + " days from from");
    }
    return request;
}

CSeriesWriter::CSeriesWriter(CFigureSource& source, const SeriesRequest& request, LocalTime now)
    : m_source(source), m_request(request), m_now(now), m_next(request.from)
{
}

bool CSeriesWriter::PutDay()
{
    if (m_next == local_days{m_request.from}) {
        PutStart();
    }
    const year_month_day date{m_next};
    if (m_request.info != nullptr) {
        PutRecords(date);
    } else {
        PutUsageRates(date);
    }
    m_next += days{1};
    if (date != m_request.to) {
        return true;
    }
    if (!m_request.isTable) {
        m_text += m_isFirst ? "]\n}\n" : "\n  ]\n}\n";
    }
    return false;
}

void CSeriesWriter::PutStart()
{
    const bool isRate = m_request.info == nullptr;
    if (m_request.isTable) {
        m_text = isRate ? "start,end,value_percent\r\n" : "start,end,value_mw\r\n";
        return;
    }
    m_text.append("{\n  \"company\": \"").append(m_request.company->key.Narrow());
    m_text.append("\",\n  \"kind\": \"").append(KindOf(m_request));
    m_text.append("\",\n  \"from\": \"");
    PutDate(m_text, m_request.from);
    m_text += "\",\n  \"to\": \"";
    PutDate(m_text, m_request.to);
    m_text += "\",\n  \"as_of\": ";
    PutMoment(m_text, m_request.asOf);
    m_text.append(",\n  \"source\": \"").append(m_source.Name()).append("\",\n  \"records\": [");
}

void CSeriesWriter::PutRecords(year_month_day date)
{
    for (const ReportRecord& record :
         m_source.Read(m_request.company->siteNumber, m_request.info->series, date, m_now, m_request.asOf)) {
        PutRecord(record.start, record.end, std::to_string(record.value));
    }
}

void CSeriesWriter::PutUsageRates(year_month_day date)
{
    const auto read = [&](Series series) {
        return m_source.Read(m_request.company->siteNumber, series, date, m_now, m_request.asOf);
    };
    for (const UsageRate& rate :
         UsageRatesOf(read(Series::kActualUsage), read(Series::kEstimatedUsage), read(Series::kSupply))) {
        PutRecord(rate.start, rate.end, std::to_string(rate.tenths / 10) + '.' + std::to_string(rate.tenths % 10));
    }
}

void CSeriesWriter::PutRecord(LocalTime start, LocalTime end, std::string_view value)
{
    if (m_request.isTable) {
        PutJapanTime(m_text, start);
        m_text += ',';
        PutJapanTime(m_text, end);
        m_text.append(",").append(value).append("\r\n");
        return;
    }
    m_text += m_isFirst ? "\n    {\"start\": \"" : ",\n    {\"start\": \"";
    m_isFirst = false;
    PutJapanTime(m_text, start);
    m_text += "\", \"end\": \"";
    PutJapanTime(m_text, end);
    m_text += m_request.info == nullptr ? "\", \"value_percent\": " : "\", \"value_mw\": ";
    m_text.append(value).append("}");
}

std::string CompaniesDocument(CFigureSource& source, LocalTime now)
{
    std::string text = "{\n  \"source\": \"";
    text.append(source.Name()).append("\",\n  \"companies\": [");
    std::string_view separator;
    for (const catalogue::Company& company : catalogue::kCompanies) {
        text += separator;
        PutCompany(text, source, company, now);
        separator = ",";
    }
    return text.append("\n  ]\n}\n");
}

} // namespace reportd
