#include "testing/Trace.h"

#include "platform/sim/Machine.h"
#include "platform/Text.h"

#include <algorithm>

namespace testing_support {

std::ostream& operator<<(std::ostream& stream, const TraceLine& line)
{
    return stream << "[" << line.level << "] " << line.function << " : " << line.message;
}

TraceLine ParseTraceLine(const std::string& line)
{
    // "[TRA] 2012/07/02 13:00:00.000 1(2) Function : message\n"
    const std::size_t close = line.find("] ");
    const std::size_t ids = line.find(") ");
    const std::size_t colon = line.find(" : ");
    if (line.empty() || line[0] != '[' || close == std::string::npos || ids == std::string::npos ||
        colon == std::string::npos || colon < ids) {
        return {};
    }
    TraceLine parsed{line.substr(1, close - 1), line.substr(ids + 2, colon - ids - 2), line.substr(colon + 3)};
    if (!parsed.message.empty() && parsed.message.back() == '\n') {
        parsed.message.pop_back();
    }
    return parsed;
}

std::vector<TraceLine> TraceLines()
{
    std::vector<TraceLine> lines;
    for (const CString& text : platform::sim::CMachine::Current().DebugLines()) {
        lines.push_back(ParseTraceLine(platform::EncodeUtf8(text)));
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
