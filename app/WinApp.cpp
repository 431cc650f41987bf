#include "app/WinApp.h"

int CWinApp::Run(const std::vector<CString>& arguments) noexcept
{
    try {
        m_arguments = arguments;
        InitInstance();
        return ExitInstance();
    } catch (...) {
        return 1;
    }
}

BOOL CWinApp::InitInstance() { return TRUE; }

int CWinApp::ExitInstance() { return m_exitCode; }
