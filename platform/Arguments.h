// The command line of this process.
#pragma once

#include "platform/Types.h"

#include <vector>

namespace platform {

// The arguments of the command line, without the program's name. argc, argv: what main got; looked at only where they
// hold the whole text (Linux: UTF-8), not where they have lost characters (Windows) or where there is no main
// (simulated machine, where the arguments are those that the process was started with). Any thread.
std::vector<CString> ProgramArguments(int argc, const char* const* argv);

} // namespace platform
