#include "app/WinApp.h"

#include "platform/Arguments.h"

int CWinApp::Run(const std::vector<CString>& arguments) noexcept
{
    try {
        m_arguments = arguments;
        InitInstance();
    } catch (...) {
        SetExitCode(1);
    }
    return ExitInstance();
}

int CWinApp::Run(int argc, const char* const* argv) noexcept
{
    try {
        return Run(platform::ProgramArguments(argc, argv));
    } catch (...) {
        return 1;
    }
}

int CWinApp::ExitInstance() { return m_exitCode; }
