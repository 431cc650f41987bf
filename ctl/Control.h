// The control program amporactl as a function, so that tests can run it.
#pragma once

#include "platform/Types.h"

#include <ostream>
#include <vector>

// Exit codes of the program.
inline constexpr int kExitSuccess = 0; // everything was shown and is sound, or the update was asked for
inline constexpr int kExitFailure = 1; // a data file is faulty, or there is none; or amporasrv is not running
inline constexpr int kExitUsage = 2;   // the command line is not understood

// Runs the program. arguments: without the program's name; out, err: its standard output and standard error, UTF-8.
// Returns its exit code. docs/amporactl.md is its manual. Throws std::bad_alloc only.
int RunControl(const std::vector<CString>& arguments, std::ostream& out, std::ostream& err);
