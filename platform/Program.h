// Other programs: the one that has a window, and starting one. All functions may be called from any thread.
#pragma once

#include "platform/Types.h"

#include <memory>

namespace platform {

// A program that runs or has run. Letting go of it does not end it.
class CProgram;
using ProgramPtr = std::shared_ptr<CProgram>;

// The program that has the session's window of this class (Window.h). Null, with the last error set, on failure: 1400
// when there is no such window, 5 when the system does not tell whose it is (Linux: /proc hides it).
ProgramPtr FindProgramOfWindow(const wchar_t* className);

// The process's identifier, as the system shows it. program: must not be null.
DWORD ProcessIdentifierOf(const ProgramPtr& program);

// When it was started, a time value (Clock.h) that may be a second off; -1 when the system does not tell. program: must
// not be null.
std::int64_t StartTimeOf(const ProgramPtr& program);

// Waits until it has ended, at most timeoutMs (INFINITE: without limit; 0: only looks). WAIT_OBJECT_0 when it has
// ended, WAIT_TIMEOUT, or WAIT_FAILED with the last error set: 6 for null, 5 when it may not be waited for.
DWORD WaitForProgramEnd(const ProgramPtr& program, DWORD timeoutMs);

// The path of the program of this name, without ".exe": beside the running program, else in the folders of the
// environment variable PATH. Empty when there is none. name: must not be null.
CString FindProgram(const wchar_t* name);

// Starts a program without arguments, apart from this one: it lives on when this program, its terminal or its console
// ends, has neither of them, and inherits no file; its working folder is its own or the root. Null, with the last error
// set, on failure: 2 or 3 when there is no such program.
ProgramPtr StartProgram(const CString& path);

} // namespace platform
