// The frame of a program that does all its work in a modal dialog.
#pragma once

#include "platform/Types.h"

#include <vector>

// The application object; a process has one. Main thread only.
class CWinApp {
public:
    CWinApp() = default;
    virtual ~CWinApp() = default;
    CWinApp(const CWinApp&) = delete;
    CWinApp& operator=(const CWinApp&) = delete;

    // Runs the program from its start to its end; returns its exit code. arguments: of the command line, without the
    // program's name. An exception of InitInstance makes the exit code 1.
    int Run(const std::vector<CString>& arguments) noexcept;
    // The same with this process's arguments. argc, argv: what main got. Also 1 when there is no memory for them;
    // nothing has run then.
    int Run(int argc, const char* const* argv) noexcept;

    // The program's work. The result is ignored: there is no message loop to run after it.
    virtual BOOL InitInstance() = 0;
    // Runs after InitInstance, also after an exception; must not throw. Returns the program's exit code.
    virtual int ExitInstance();

protected:
    const std::vector<CString>& Arguments() const { return m_arguments; }
    // What ExitInstance returns; 0 at first.
    void SetExitCode(int exitCode) { m_exitCode = exitCode; }

private:
    std::vector<CString> m_arguments;
    int m_exitCode = 0;
};
