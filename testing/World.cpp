#include "testing/World.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace testing_support {

namespace {

template <class... Numbers>
std::string Formatted(const char* format, Numbers... numbers)
{
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), format, numbers...);
    return text.data();
}

// The lowest bytes of a number, little-endian.
std::string LowBytes(std::uint64_t value, int count)
{
    std::string bytes;
    for (int i = 0; i < count; ++i) {
        bytes += static_cast<char>(value >> (8 * i) & 0xFFU);
    }
    return bytes;
}

} // namespace

const TestCompany& CompanyOf(const std::string& word)
{
    const auto* const found = std::find_if(kTestCompanies.begin(), kTestCompanies.end(),
                                           [&](const TestCompany& company) { return company.word == word; });
    if (found == kTestCompanies.end()) {
        throw std::invalid_argument("no company " + word);
    }
    return *found;
}

const TestKind& KindOf(DWORD code)
{
    const auto* const found =
        std::find_if(kTestKinds.begin(), kTestKinds.end(), [&](const TestKind& kind) { return kind.code == code; });
    if (found == kTestKinds.end()) {
        throw std::invalid_argument("no data type code " + std::to_string(code));
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

std::string TargetOf(const Request& request)
{
    const TestKind& kind = KindOf(request.dataType);
    return "/" + kind.category + "/" + request.company + "/" + kind.word + "?date=" + request.date + "&output=xml";
}

std::optional<Request> ParseTarget(const std::string& target)
{
    constexpr std::size_t kDateSize = 10;
    const std::size_t query = target.find("?date=");
    if (query == std::string::npos) {
        return {};
    }
    const std::string date = target.substr(query + 6, kDateSize);
    if (date.size() != kDateSize || date.find_first_not_of("0123456789-") != std::string::npos) {
        return {};
    }
    for (const TestCompany& company : kTestCompanies) {
        for (const TestKind& kind : kTestKinds) {
            Request request{company.word, static_cast<unsigned>(kind.code), date};
            if (TargetOf(request) == target) {
                return request;
            }
        }
    }
    return {};
}

std::string DateText(const SYSTEMTIME& time) { return Formatted("%04d-%02d-%02d", time.wYear, time.wMonth, time.wDay); }

std::string DateTimeText(const SYSTEMTIME& time)
{
    return DateText(time) + Formatted("T%02d:%02d:%02d", time.wHour, time.wMinute, time.wSecond);
}

std::string DataFileName(const std::string& company, unsigned dataType)
{
    return company + Formatted("_%08X.dat", dataType);
}

std::string Bytes32(std::uint32_t value) { return LowBytes(value, 4); }

std::string Bytes64(std::uint64_t value) { return LowBytes(value, 8); }

std::string CalendarBytes(const SYSTEMTIME& time)
{
    std::string bytes;
    for (const WORD field : {time.wYear, time.wMonth, time.wDayOfWeek, time.wDay, time.wHour, time.wMinute,
                             time.wSecond, time.wMilliseconds}) {
        bytes += LowBytes(field, 2);
    }
    return bytes;
}

std::string RecordBytes(const Records& records)
{
    std::string bytes;
    for (const Record& record : records) {
        bytes += Bytes64(record.value) + CalendarBytes(record.start) + CalendarBytes(record.end);
    }
    return bytes;
}

std::string HeaderBytes(unsigned dataType, std::size_t recordCount)
{
    return Bytes32(0x00010000) + Bytes32(dataType) + Bytes32(static_cast<std::uint32_t>(recordCount)) + Bytes32(0);
}

} // namespace testing_support
