// The application object.
#pragma once

#include "app/WinApp.h"
#include "platform/Sync.h"

class CTraceLog;

// Tells the running copy to quit, or runs the hidden dialog, as the only copy of the session.
class CAmporaSrvApp : public CWinApp {
public:
    // Sets the trace log's mask from the settings, before anything is traced.
    CAmporaSrvApp() noexcept;

    // Always FALSE.
    BOOL InitInstance() override;
    int ExitInstance() override;

private:
    // Whether this copy may run: true also when the mutex that would tell of another one cannot be created.
    bool ClaimSession(const CTraceLog& log);
    void RunDialog(const CTraceLog& log);

    platform::WaitHandle m_hMutex; // null when none
};
