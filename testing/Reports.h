// Power reports for tests, as the API would send them (UTF-8).
#pragma once

#include "testing/World.h"

#include <ostream>
#include <string>
#include <vector>

namespace testing_support {

// One usage element.
struct UsageRow {
    std::string datetime = "2012-07-02T13:00:00";
    std::string duration = "300"; // seconds
    std::string value = "4000";
};

// One supply or demand element.
struct PeakRow {
    std::string start = "2012-07-02T00:00:00";
    std::string end = "2012-07-02T23:59:59";
    std::string value = "5000";
};

// The elements that tell of a record. seconds: a usage's duration.
UsageRow UsageOf(const Record& record, std::int64_t seconds);
PeakRow PeakOf(const Record& record);

std::string UsageXml(const UsageRow& row);
// tagName: "supply" or "demand".
std::string PeakXml(const std::string& tagName, const PeakRow& row);

// An element without attributes around content.
std::string ElementXml(const std::string& tagName, const std::string& content);

// A whole report: XML declaration and the root element around content.
std::string Report(const std::string& content);

// A whole report of one kind. dataType: data type code; usages: for 1, 2 and 4; peak: for 8 and 16.
std::string UsageReport(unsigned dataType, const std::vector<UsageRow>& usages);
std::string PeakReport(unsigned dataType, const PeakRow& peak);

// count usages of one day, stepSeconds apart from its first moment on; the values count up from 1. date:
// "2012-07-02". Usages beyond the day's end start over.
std::vector<UsageRow> UsagesOfDay(const std::string& date, int count, int stepSeconds);

// A text and what is wrong with it.
struct NamedReport {
    std::string name; // letters only: serves as a test's name
    std::string xml;
};
// Shows the name only.
std::ostream& operator<<(std::ostream& stream, const NamedReport& report);

// Texts that are no well-formed XML documents.
std::vector<NamedReport> UnloadableReports();

} // namespace testing_support
