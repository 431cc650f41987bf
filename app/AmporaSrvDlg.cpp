#include "app/AmporaSrvDlg.h"

#include "config/SharedNames.h"
#include "config/TraceLog.h"

namespace {

// How long to wait for the worker to end: when the program ends, and when the worker may be started again soon.
constexpr DWORD kDestroyTimeoutMs = 1000;
constexpr DWORD kLeaveTimeoutMs = 100;

} // namespace

CAmporaSrvDlg::CAmporaSrvDlg()
    : CDialog(kDialogTemplate, kWindowClassName), m_updater(std::make_shared<CAmporaUpdater>())
{
}

LRESULT CAmporaSrvDlg::WindowProc(UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message) {
    case WM_QUERYDRAGICON:
        return Default();
    case WM_DESTROY:
        OnDestroy();
        return 0;
    case WM_WTSSESSION_CHANGE:
        OnSessionChange(static_cast<UINT>(wParam), static_cast<UINT>(lParam));
        return 0;
    case WM_POWERBROADCAST:
        return OnPowerBroadcast(static_cast<UINT>(wParam), static_cast<UINT>(lParam));
    case WM_WINDOWPOSCHANGING:
        // NOLINTNEXTLINE(performance-no-int-to-ptr): the message carries the address as an integer
        OnWindowPosChanging(reinterpret_cast<WINDOWPOS*>(lParam));
        return 0;
    default:
        return CDialog::WindowProc(message, wParam, lParam);
    }
}

BOOL CAmporaSrvDlg::OnInitDialog()
{
    const CTraceScope scope(L"CAmporaSrvDlg::OnInitDialog");
    CDialog::OnInitDialog();
    platform::RegisterSessionNotices(Window());
    m_updater->Start();
    return TRUE;
}

void CAmporaSrvDlg::OnDestroy()
{
    const CTraceScope scope(L"CAmporaSrvDlg::OnDestroy");
    m_updater->Stop(kDestroyTimeoutMs);
    CDialog::OnDestroy();
}

void CAmporaSrvDlg::OnSessionChange(UINT code, UINT /*sessionId*/)
{
    const CTraceScope scope(L"CAmporaSrvDlg::OnSessionChange");
    try {
        if (code == WTS_CONSOLE_CONNECT) {
            scope.Tra(L"Enter User Session");
            if (!m_updater->Start()) {
                scope.Err(L"Sesstion Change Start Fail");
            }
        } else if (code == WTS_CONSOLE_DISCONNECT) {
            scope.Tra(L"Leave User Session");
            m_updater->Stop(kLeaveTimeoutMs);
        }
    } catch (...) {
        scope.Err(L"SessionChange Exception");
    }
    Default();
}

UINT CAmporaSrvDlg::OnPowerBroadcast(UINT event, UINT /*data*/)
{
    const CTraceScope scope(L"CAmporaSrvDlg::OnPowerBroadcast");
    try {
        if (event == PBT_APMSUSPEND) {
            scope.Tra(L"Suspend");
            m_updater->Stop(kLeaveTimeoutMs);
        } else if (event == PBT_APMRESUMESUSPEND || event == PBT_APMRESUMEAUTOMATIC) {
            scope.Tra(L"Resume");
            if (!m_updater->Start()) {
                scope.Err(L"Resume Start Fail");
            }
        }
    } catch (...) {
        scope.Err(L"PowerEvent Exception");
    }
    return static_cast<UINT>(Default());
}

void CAmporaSrvDlg::OnWindowPosChanging(WINDOWPOS* position)
{
    position->flags &= ~SWP_SHOWWINDOW;
    Default();
}
