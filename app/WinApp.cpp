#include "app/WinApp.h"

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

BOOL CWinApp::InitInstance() { return TRUE; }

int CWinApp::ExitInstance() { return m_exitCode; }
