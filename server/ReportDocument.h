// A report as the document that its clients read.
#pragma once

#include "server/Figures.h"

#include <string>
#include <vector>

namespace reportd {

// The kind of reports at "/category/K/word"; null when there is none. Any thread, as the other function.
const catalogue::Kind* FindReportKind(std::string_view category, std::string_view word);

// The power_report document (XML, UTF-8) of these records, which are of that kind and in order of time.
std::string ReportDocument(const catalogue::Kind& kind, const std::vector<ReportRecord>& records);

} // namespace reportd
