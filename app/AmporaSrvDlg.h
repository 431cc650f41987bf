// The program's only window: the hidden control dialog.
#pragma once

#include "app/Dialog.h"
#include "engine/AmporaUpdater.h"

// The dialog's number in the resources.
inline constexpr WORD kDialogTemplate = 102;

// Never shown. Starts the updater when the window is created, when the session is connected to the console and when the
// machine resumes; stops it when the session is disconnected, when the machine suspends and when the window is
// destroyed.
class CAmporaSrvDlg : public CDialog {
public:
    CAmporaSrvDlg();

protected:
    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override;
    BOOL OnInitDialog() override;
    void OnDestroy() override;

    // The session's state has changed. code: WTS_...; sessionId: which session.
    void OnSessionChange(UINT code, UINT sessionId);
    // The machine's power state changes. event: PBT_...; data: depends on it. The result of default processing.
    UINT OnPowerBroadcast(UINT event, UINT data);
    // The window is about to change. position: not null; the system uses what it holds afterwards.
    void OnWindowPosChanging(WINDOWPOS* position);

private:
    // Shared with a worker that outlives the dialog (AmporaThread.h).
    const std::shared_ptr<CAmporaUpdater> m_updater;
};
