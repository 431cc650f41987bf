// Taking apart the trace lines of amporasrv (config/TraceLog.h).
#pragma once

#include "platform/Types.h"

#include <optional>
#include <string_view>

namespace ctl {

// Parts of a line, which must live as long.
struct TraceLine {
    std::wstring_view tag;      // "ERR", "WAR" or "TRA"
    std::wstring_view function; // qualified name
    std::wstring_view message;
    DWORD processId = 0;
};

// "[TRA] 2012/07/02 13:00:00.000 1(2) Function : message", without its line feed. None for any other text. Any thread.
std::optional<TraceLine> ParseTraceLine(std::wstring_view text);

} // namespace ctl
