// The program's only window: the hidden control dialog.
#pragma once

#include "app/Dialog.h"
#include "engine/AmporaUpdater.h"

// The dialog's number in the resources.
inline constexpr WORD kDialogTemplate = 102;

// Is never shown. Runs the updater while the session is the console's and the machine is awake: starts it with the
// window, stops it when the session is left or the machine suspends, starts it again when the session is entered or the
// machine resumes, and stops it with the window.
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
    // The window is about to change. position: the system's, what is changed in it counts; not null.
    void OnWindowPosChanging(WINDOWPOS* position);

private:
    // Held so because a worker that outlives the dialog keeps it (AmporaThread.h).
    const std::shared_ptr<CAmporaUpdater> m_updater;
};
