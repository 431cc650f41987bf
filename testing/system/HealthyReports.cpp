#include "testing/system/HealthyReports.h"

#include "testing/Reports.h"

#include <mutex>
#include <stdexcept>

namespace system_test {

using testing_support::KindOf;
using testing_support::Record;
using testing_support::Records;

namespace {

constexpr int kUsageSeconds = 300;
constexpr SYSTEMTIME kPeakStart{2012, 7, 1, 2, 14, 0, 0, 0}; // a Monday
constexpr SYSTEMTIME kPeakEnd{2012, 7, 1, 2, 15, 0, 0, 0};

} // namespace

SYSTEMTIME CalendarOf(std::time_t time)
{
    static std::mutex zone; // the server's thread and the test's convert times
    const std::scoped_lock lock(zone);
    std::tm local{};
    if (::localtime_r(&time, &local) == nullptr) {
        throw std::runtime_error("localtime");
    }
    const auto field = [](int value) { return static_cast<WORD>(value); };
    return {field(local.tm_year + 1900), field(local.tm_mon + 1), field(local.tm_wday), field(local.tm_mday),
            field(local.tm_hour),        field(local.tm_min),     field(local.tm_sec),  0};
}

std::string DateOf(std::time_t time) { return testing_support::DateText(CalendarOf(time)); }

std::string DateTimeOf(std::time_t time) { return testing_support::DateTimeText(CalendarOf(time)); }

std::string CalendarBytes(std::time_t time) { return testing_support::CalendarBytes(CalendarOf(time)); }

Records CHealthyReports::RecordsOf(const Request& request, const std::vector<int>& usageHours) const
{
    // Values tell company, kind, and day or hour apart.
    const auto value = [&](std::uint64_t last) {
        return static_cast<std::uint64_t>(CompanyOf(request.company).site) * 10000 + request.dataType * 100 + last;
    };
    if (!KindOf(request.dataType).isTrimmed) {
        return {{value(std::stoull(request.date.substr(8))), kPeakStart, kPeakEnd}};
    }
    Records records;
    for (const int hours : usageHours) {
        const std::time_t start = m_now + hours * 3600;
        if (DateOf(start) == request.date) {
            records.push_back(
                {value(static_cast<std::uint64_t>(50 + hours)), CalendarOf(start), CalendarOf(start + kUsageSeconds)});
        }
    }
    return records;
}

testing_support::HttpAnswer CHealthyReports::Answer(const Request& request) const
{
    const Records records = RecordsOf(request, {-13, -6, -1, 1, 6, 13});
    if (!KindOf(request.dataType).isTrimmed) {
        return {.body = testing_support::PeakReport(request.dataType, testing_support::PeakOf(records.front()))};
    }
    std::vector<testing_support::UsageRow> rows;
    for (const Record& record : records) {
        rows.push_back(testing_support::UsageOf(record, kUsageSeconds));
    }
    return {.body = testing_support::UsageReport(request.dataType, rows)};
}

std::string CHealthyReports::RecordBytes(const std::string& company, unsigned dataType,
                                         const std::vector<std::string>& dates) const
{
    std::string bytes;
    for (const std::string& date : dates) {
        bytes += testing_support::RecordBytes(RecordsOf({company, dataType, date}, {-6, -1, 1, 6}));
    }
    return bytes;
}

} // namespace system_test
