// The program's command line.
#pragma once

#include "app/CommandLineInfo.h"

// Knows one option: /Exit or -Exit, case-sensitive.
class CAmporaSrvCmdLineInfo : public CCommandLineInfo {
public:
    void ParseParam(const wchar_t* pszParam, BOOL bFlag, BOOL bLast) override;

    // Whether to tell the running copy to quit.
    BOOL IsExitMode() const { return m_bExitMode; }

private:
    BOOL m_bExitMode = FALSE;
};
