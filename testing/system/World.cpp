#include "testing/system/World.h"

#include "testing/Reports.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <regex>
#include <stdexcept>

namespace system_test {
namespace {

// Path and query of a report. Made before there are threads: two threads that compile expressions race for tables of
// the standard library.
const std::regex kTarget(R"(/(\w+)/(\w+)/(\w+)\?date=(\d{4}-\d\d-\d\d)&output=xml)");

using testing_support::PeakReport;
using testing_support::UsageReport;
using testing_support::UsageRow;

constexpr int kUsageSeconds = 300;
constexpr const char* kPeakStart = "2012-07-02T14:00:00"; // a Monday
constexpr const char* kPeakEnd = "2012-07-02T15:00:00";

struct KindWords {
    unsigned dataType;
    std::string category;
    std::string word;
};

const std::array<KindWords, 5>& Kinds()
{
    static const std::array<KindWords, 5> kinds = {{{1, "usage", "instant"},
                                                    {2, "usage", "actual"},
                                                    {4, "usage", "estimated"},
                                                    {8, "peak", "supply"},
                                                    {16, "peak", "demand"}}};
    return kinds;
}

// The server's thread and the test's convert times.
std::mutex g_zone;

std::tm LocalTime(std::time_t time)
{
    const std::scoped_lock lock(g_zone);
    std::tm local{};
    if (::localtime_r(&time, &local) == nullptr) {
        throw std::runtime_error("localtime");
    }
    return local;
}

std::time_t TimeOf(std::tm local)
{
    const std::scoped_lock lock(g_zone);
    return std::mktime(&local);
}

std::string FormatTime(const std::tm& local, const char* format)
{
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), format, &local);
    return text.data();
}

// Tells company, kind and hour apart.
unsigned long long UsageValue(const std::string& company, unsigned dataType, int hours)
{
    return CompanyOf(company).site * 10000ULL + dataType * 100ULL + static_cast<unsigned long long>(50 + hours);
}

unsigned long long PeakValue(const std::string& company, unsigned dataType, const std::string& date)
{
    return CompanyOf(company).site * 10000ULL + dataType * 100ULL + std::stoull(date.substr(8));
}

std::string Bytes16(unsigned value)
{
    return {static_cast<char>(value & 0xFFU), static_cast<char>(value >> 8U & 0xFFU)};
}

std::string CalendarBytes(const std::tm& local)
{
    std::string bytes;
    for (const int field : {local.tm_year + 1900, local.tm_mon + 1, local.tm_wday, local.tm_mday, local.tm_hour,
                            local.tm_min, local.tm_sec, 0}) {
        bytes += Bytes16(static_cast<unsigned>(field));
    }
    return bytes;
}

// 2012-07-02 14:00:00 and 15:00:00, a Monday.
const std::string kPeakStartBytes("\xDC\x07\x07\x00\x01\x00\x02\x00\x0E\x00\x00\x00\x00\x00\x00\x00", 16);
const std::string kPeakEndBytes("\xDC\x07\x07\x00\x01\x00\x02\x00\x0F\x00\x00\x00\x00\x00\x00\x00", 16);

} // namespace

const std::vector<Company>& Companies()
{
    static const std::vector<Company> companies = {{"tokyo", "CAmporaTokyoPowerCompany", 3, 31},
                                                   {"tohoku", "CAmporaTohokuPowerCompany", 2, 31},
                                                   {"kansai", "CAmporaKansaiPowerCompany", 6, 31},
                                                   {"chubu", "CAmporaChubuPowerCompany", 5, 26},
                                                   {"kyushu", "CAmporaKyushuPowerCompany", 9, 25}};
    return companies;
}

const Company& CompanyOf(const std::string& word)
{
    const auto found = std::find_if(Companies().begin(), Companies().end(),
                                    [&](const Company& company) { return company.word == word; });
    if (found == Companies().end()) {
        throw std::invalid_argument(word);
    }
    return *found;
}

std::vector<unsigned> KindsOf(const std::string& company)
{
    std::vector<unsigned> kinds;
    for (const unsigned dataType : kDataTypes) {
        if ((CompanyOf(company).mask & dataType) != 0) {
            kinds.push_back(dataType);
        }
    }
    return kinds;
}

std::optional<Request> ParseTarget(const std::string& target)
{
    std::smatch parts;
    if (!std::regex_match(target, parts, kTarget)) {
        return {};
    }
    for (const KindWords& kind : Kinds()) {
        if (kind.category == parts[1] && kind.word == parts[3]) {
            return Request{parts[2], kind.dataType, parts[4]};
        }
    }
    return {};
}

std::string TargetOf(const Request& request)
{
    const auto kind = std::find_if(Kinds().begin(), Kinds().end(),
                                   [&](const KindWords& words) { return words.dataType == request.dataType; });
    return "/" + kind->category + "/" + request.company + "/" + kind->word + "?date=" + request.date + "&output=xml";
}

std::string DateOf(std::time_t time, int days)
{
    std::tm local = LocalTime(time);
    local.tm_mday += days;
    local.tm_hour = 12;
    local.tm_isdst = -1;
    return FormatTime(LocalTime(TimeOf(local)), "%Y-%m-%d");
}

std::string DateTimeOf(std::time_t time) { return FormatTime(LocalTime(time), "%Y-%m-%dT%H:%M:%S"); }

std::string Bytes32(unsigned value) { return Bytes16(value & 0xFFFFU) + Bytes16(value >> 16U); }

std::string Bytes64(unsigned long long value)
{
    return Bytes32(static_cast<unsigned>(value & 0xFFFFFFFFU)) + Bytes32(static_cast<unsigned>(value >> 32U));
}

std::string CalendarBytes(std::time_t time) { return CalendarBytes(LocalTime(time)); }

testing_support::HttpAnswer CHealthyReports::Answer(const Request& request) const
{
    if (request.dataType >= 8) {
        const std::string value = std::to_string(PeakValue(request.company, request.dataType, request.date));
        return {.body = PeakReport(request.dataType, {kPeakStart, kPeakEnd, value})};
    }
    std::vector<UsageRow> rows;
    for (const int hours : {-13, -6, -1, 1, 6, 13}) {
        const std::time_t start = m_now + hours * 3600;
        if (DateOf(start) == request.date) {
            rows.push_back({DateTimeOf(start), std::to_string(kUsageSeconds),
                            std::to_string(UsageValue(request.company, request.dataType, hours))});
        }
    }
    return {.body = UsageReport(request.dataType, rows)};
}

std::string CHealthyReports::RecordBytes(const std::string& company, unsigned dataType,
                                         const std::vector<std::string>& dates) const
{
    std::string bytes;
    if (dataType >= 8) {
        for (const std::string& date : dates) {
            bytes += Bytes64(PeakValue(company, dataType, date)) + kPeakStartBytes + kPeakEndBytes;
        }
        return bytes;
    }
    for (const std::string& date : dates) {
        for (const int hours : {-6, -1, 1, 6}) {
            const std::time_t start = m_now + hours * 3600;
            if (DateOf(start) == date) {
                bytes += Bytes64(UsageValue(company, dataType, hours)) + CalendarBytes(start) +
                         CalendarBytes(start + kUsageSeconds);
            }
        }
    }
    return bytes;
}

} // namespace system_test
