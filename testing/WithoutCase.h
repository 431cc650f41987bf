// Compares names as HTTP does.
#pragma once

#include <algorithm>
#include <cctype>
#include <string_view>

namespace testing_support {

// Whether two ASCII texts differ in upper and lower case at most.
inline bool EqualsWithoutCase(std::string_view left, std::string_view right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}

} // namespace testing_support
