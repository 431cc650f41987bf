// The reports that the system tests' server gives unless a test says otherwise, and what the data files must hold then.
#pragma once

#include "testing/HttpAnswer.h"
#include "testing/World.h"

#include <ctime>
#include <string>
#include <vector>

namespace system_test {

using testing_support::Bytes64;
using testing_support::CompanyOf;
using testing_support::DataFileName;
using testing_support::HeaderBytes;
using testing_support::kDataTypes;
using testing_support::KindsOf;
using testing_support::kTestCompanies;
using testing_support::ParseTarget;
using testing_support::Request;
using testing_support::TargetOf;
using testing_support::TestCompany;

// The eight fields of a local calendar time, and texts of it: "2012-07-02", "2012-07-02T13:00:00". Any thread.
SYSTEMTIME CalendarOf(std::time_t time);
std::string DateOf(std::time_t time);
std::string DateTimeOf(std::time_t time);
std::string CalendarBytes(std::time_t time);

// Reports around a moment: usages six hours and one hour before it and one hour and six hours after it, and others
// 13 hours away that no file is to hold; one peak per day, whose value tells the day.
class CHealthyReports {
public:
    explicit CHealthyReports(std::time_t now) : m_now(now) {}

    testing_support::HttpAnswer Answer(const Request& request) const;
    // The bytes behind the header of the data file. dates: the days that were asked for, in order.
    std::string RecordBytes(const std::string& company, unsigned dataType, const std::vector<std::string>& dates) const;

private:
    // Those of its day; a usage starts this many hours from now.
    testing_support::Records RecordsOf(const Request& request, const std::vector<int>& usageHours) const;

    std::time_t m_now;
};

} // namespace system_test
