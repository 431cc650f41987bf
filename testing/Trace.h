// Reads trace lines back in tests.
#pragma once

#include "platform/Types.h"

#include <ostream>
#include <string>
#include <vector>

namespace testing_support {

// The parts of one trace line that do not depend on time, process and thread, in UTF-8 so that a failing test prints
// them.
struct TraceLine {
    std::string level;    // "ERR", "WAR" or "TRA"
    std::string function; // qualified function name
    std::string message;

    bool operator==(const TraceLine&) const = default;
};
std::ostream& operator<<(std::ostream& stream, const TraceLine& line);

// Splits a line; level is empty for text that is no trace line.
TraceLine ParseTraceLine(const std::string& line);

// The lines that the simulated machine's debugger got so far.
std::vector<TraceLine> TraceLines();

// The same without "Enter" and "Leave".
std::vector<TraceLine> TraceMessages();

// How often the simulated machine's debugger got this line.
int CountTrace(const std::string& level, const std::string& function, const std::string& message);

// Whether "Enter" and "Leave" of all lines pair up and nest.
bool TraceScopesBalance(const std::vector<TraceLine>& lines);

} // namespace testing_support
