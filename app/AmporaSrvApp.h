// The application object.
#pragma once

#include "app/WinApp.h"
#include "platform/Sync.h"

class CTraceLog;

// Tells a running copy to quit, or sees to it that only one copy runs in the session and runs its hidden dialog.
class CAmporaSrvApp : public CWinApp {
public:
    // Sets the trace log's mask from the settings, so that it is in force before anything else happens.
    CAmporaSrvApp() noexcept;

    // Always FALSE.
    BOOL InitInstance() override;
    int ExitInstance() override;

private:
    // Whether this copy may run: none runs in the session yet, or it cannot be known.
    bool ClaimSession(const CTraceLog& log);
    void RunDialog(const CTraceLog& log);

    platform::WaitHandle m_hMutex; // null when none
};
