#include "testing/CalendarText.h"

#include <cstdio>

namespace testing_support {

std::string CalendarText(const SYSTEMTIME& time)
{
    char text[64] = {};
    std::snprintf(text, sizeof(text), "%04u-%02u-%02u(%u) %02u:%02u:%02u.%03u", unsigned{time.wYear},
                  unsigned{time.wMonth}, unsigned{time.wDay}, unsigned{time.wDayOfWeek}, unsigned{time.wHour},
                  unsigned{time.wMinute}, unsigned{time.wSecond}, unsigned{time.wMilliseconds});
    return text;
}

std::string RecordText(const _AmporaOneData& record)
{
    return std::to_string(record.ullValue) + " " + CalendarText(record.stStart) + " to " + CalendarText(record.stEnd);
}

} // namespace testing_support
