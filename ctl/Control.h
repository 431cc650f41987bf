// The control program amporactl as a function, so that tests can run it.
#pragma once

#include "platform/Types.h"

#include <ostream>
#include <vector>

// Runs the program. arguments: without the program's name; out, err: its standard output and standard error, UTF-8.
// Returns its exit code. docs/amporactl.md is its manual. Throws std::bad_alloc only.
int RunControl(const std::vector<CString>& arguments, std::ostream& out, std::ostream& err);
