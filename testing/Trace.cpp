#include "testing/Trace.h"

#include "platform/sim/Machine.h"
#include "platform/Text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

namespace testing_support {

namespace {

bool IsLevel(std::string_view text) { return text == "ERR" || text == "WAR" || text == "TRA"; }

bool IsTime(std::string_view text)
{
    const std::string_view shape = "0000/00/00 00:00:00.000";
    return std::equal(text.begin(), text.end(), shape.begin(), shape.end(),
                      [](char c, char as) { return as == '0' ? c >= '0' && c <= '9' : c == as; });
}

} // namespace

std::ostream& operator<<(std::ostream& stream, const TraceLine& line)
{
    return stream << "[" << line.level << "] " << line.function << " : " << line.message;
}

std::optional<StampedLine> ParseTraceLine(const std::string& text)
{
    std::array<char, 4> level{};
    std::array<char, 24> time{};
    StampedLine line;
    int end = 0;
    std::sscanf(text.c_str(), "[%3[A-Z]] %23[0-9/:. ] %d(%d) %n", level.data(), time.data(), &line.process,
                &line.thread, &end);
    const auto head = static_cast<std::size_t>(end);
    const std::size_t colon = text.find(" : ", head);
    if (head == 0 || !IsLevel(level.data()) || !IsTime(time.data()) || colon == std::string::npos || colon == head) {
        return {};
    }
    line.time = time.data();
    line.trace = {level.data(), text.substr(head, colon - head), text.substr(colon + 3)};
    if (line.trace.message.ends_with('\n')) {
        line.trace.message.pop_back();
    }
    return line;
}

std::vector<TraceLine> TraceLines()
{
    std::vector<TraceLine> lines;
    for (const CString& text : platform::sim::CMachine::Current().DebugLines()) {
        const std::optional<StampedLine> line = ParseTraceLine(platform::EncodeUtf8(text));
        lines.push_back(line ? line->trace : TraceLine{});
    }
    return lines;
}

std::vector<TraceLine> TraceMessages()
{
    std::vector<TraceLine> lines = TraceLines();
    std::erase_if(lines, [](const TraceLine& line) { return line.message == "Enter" || line.message == "Leave"; });
    return lines;
}

int CountTrace(const std::string& level, const std::string& function, const std::string& message)
{
    const std::vector<TraceLine> lines = TraceLines();
    return static_cast<int>(std::count(lines.begin(), lines.end(), TraceLine{level, function, message}));
}

bool TraceScopesBalance(const std::vector<TraceLine>& lines)
{
    std::vector<std::string> open;
    for (const TraceLine& line : lines) {
        if (line.message == "Enter") {
            open.push_back(line.function);
        } else if (line.message == "Leave") {
            if (open.empty() || open.back() != line.function) {
                return false;
            }
            open.pop_back();
        }
    }
    return open.empty();
}

} // namespace testing_support
