// The world that the system tests show to amporasrv: which reports it asks for, what they say, and what the data files
// have to hold then. Everything here is written down anew, apart from the program's own code.
#pragma once

#include "testing/HttpAnswer.h"

#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace system_test {

// A company, in the order of a pass.
struct Company {
    std::string word;
    std::string className;
    unsigned site;
    unsigned mask; // data types that are asked for when nothing is set
};
const std::vector<Company>& Companies();
const Company& CompanyOf(const std::string& word);

inline constexpr unsigned kDataTypes[] = {1, 2, 4, 8, 16};
// Those that a company is asked for when nothing is set.
std::vector<unsigned> KindsOf(const std::string& company);

// What a request asks for.
struct Request {
    std::string company;
    unsigned dataType = 0;
    std::string date; // "2012-07-02"

    bool operator==(const Request&) const = default;
};
// Empty for a target that is none of the program's.
std::optional<Request> ParseTarget(const std::string& target);
std::string TargetOf(const Request& request);

// A local day, days after the one of time.
std::string DateOf(std::time_t time, int days = 0);
// "2012-07-02T13:00:00"
std::string DateTimeOf(std::time_t time);

// Reports around a moment: usages six hours and one hour before it and one hour and six hours after it, and others
// 13 hours away that no file is to hold; one peak per day, whose value tells the day.
class CHealthyReports {
public:
    explicit CHealthyReports(std::time_t now) : m_now(now) {}

    testing_support::HttpAnswer Answer(const Request& request) const;
    // The bytes behind the header of the data file. dates: the days that were asked for, in order.
    std::string RecordBytes(const std::string& company, unsigned dataType, const std::vector<std::string>& dates) const;

private:
    std::time_t m_now;
};

// Bytes of the format's parts, little-endian.
std::string Bytes32(unsigned value);
std::string Bytes64(unsigned long long value);
// The eight fields of a local calendar time.
std::string CalendarBytes(std::time_t time);

} // namespace system_test
