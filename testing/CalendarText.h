// Shows calendar times and records in tests.
#pragma once

#include "format/DataFileFormat.h"

#include <string>

namespace testing_support {

// All eight fields: "2012-07-02(1) 13:00:00.000", the day of week in parentheses.
std::string CalendarText(const SYSTEMTIME& time);

// A whole record: "value start to end".
std::string RecordText(const _AmporaOneData& record);

} // namespace testing_support
