// Calendar times for tests.
#pragma once

#include "platform/Types.h"

namespace testing_support {

// Without a day of week (0, a Sunday).
constexpr SYSTEMTIME Calendar(int year, int month, int day, int hour = 0, int minute = 0, int second = 0,
                              int milliseconds = 0)
{
    const auto field = [](int value) { return static_cast<WORD>(value); };
    return {field(year), field(month), 0, field(day), field(hour), field(minute), field(second), field(milliseconds)};
}

} // namespace testing_support
