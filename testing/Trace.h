// Reads trace lines back in tests.
#pragma once

#include <optional>
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

// The same with what differs from run to run.
struct StampedLine {
    TraceLine trace;
    std::string time; // "2012/07/02 13:00:00.000", local
    int process = 0;
    int thread = 0;
};
// Takes a line apart: "[TRA] 2012/07/02 13:00:00.000 1(2) Function : message", with or without the line's end. Empty
// for text that is no trace line.
std::optional<StampedLine> ParseTraceLine(const std::string& text);

// The lines that the simulated machine's debugger got so far.
std::vector<TraceLine> TraceLines();

// The same without "Enter" and "Leave".
std::vector<TraceLine> TraceMessages();

// How often the simulated machine's debugger got this line.
int CountTrace(const std::string& level, const std::string& function, const std::string& message);

// Whether "Enter" and "Leave" of all lines pair up and nest.
bool TraceScopesBalance(const std::vector<TraceLine>& lines);

} // namespace testing_support
