#include "app/AmporaSrvApp.h"

#include "app/AmporaSrvCmdLineInfo.h"
#include "app/AmporaSrvDlg.h"
#include "config/ConfigUtil.h"
#include "config/SharedNames.h"
#include "config/TraceLog.h"
#include "format/DataFilePath.h"
#include "platform/FolderCheck.h"
#include "platform/LastError.h"

namespace {

// Every kind of control of the first common controls. Source: Windows SDK, commctrl.h (ICC_...).
constexpr DWORD kControlKinds = 0xFF;

// False when a copy runs but the message could not be posted to it.
bool TellRunningCopyToQuit(const CTraceLog& log)
{
    const platform::FoundWindowPtr window = platform::FindWindowOfClass(kWindowClassName);
    if (!window) {
        log.War(L"Not Found Window");
        return true;
    }
    log.Tra(L"Post WM_QUIT");
    return platform::PostToWindow(window, WM_QUIT, 0, 0) != FALSE;
}

} // namespace

CAmporaSrvApp::CAmporaSrvApp() noexcept
{
    try {
        g_dwLogLevel = CConfigUtil::GetLogLevel();
    } catch (...) { // NOLINT(bugprone-empty-catch): there is no memory; the program runs without a log
    }
}

BOOL CAmporaSrvApp::InitInstance()
{
    const CTraceScope scope(L"CAmporaSrvApp::InitInstance");
    CAmporaSrvCmdLineInfo commandLine;
    ParseCommandLine(Arguments(), commandLine);
    if (commandLine.IsExitMode()) {
        scope.Tra(L"Exit Mode");
        if (!TellRunningCopyToQuit(scope)) {
            SetExitCode(1);
        }
        return FALSE;
    }
    platform::InitializeControls(kControlKinds);
    if (ClaimSession(scope)) {
        platform::ReportUnusableFolders(DataFolder(), kUpdateMutexName);
        RunDialog(scope);
    }
    return FALSE;
}

bool CAmporaSrvApp::ClaimSession(const CTraceLog& log)
{
    m_hMutex = platform::CreateNamedMutex(kInstanceMutexName, TRUE, nullptr);
    const DWORD error = platform::GetLastErrorCode();
    if (m_hMutex && error == ERROR_ALREADY_EXISTS) {
        log.Tra(L"Run 2 times");
        return false;
    }
    if (!m_hMutex) {
        // Two copies do less harm than no copy: the update mutex keeps their passes apart.
        log.Err(L"Creatre Mutex Fail.");
    }
    return true;
}

void CAmporaSrvApp::RunDialog(const CTraceLog& log)
{
    platform::RegisterDialogClass(kWindowClassName);
    log.Tra(L"Set Window Class");
    CAmporaSrvDlg dialog;
    if (!dialog.DoModal()) {
        SetExitCode(1);
    }
}

int CAmporaSrvApp::ExitInstance()
{
    const CTraceScope scope(L"CAmporaSrvApp::ExitInstance");
    if (m_hMutex) {
        scope.Tra(L"Close Mutex");
        m_hMutex.reset();
    }
    return CWinApp::ExitInstance();
}
