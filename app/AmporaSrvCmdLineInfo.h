// The program's command line.
#pragma once

#include "app/CommandLineInfo.h"

// Knows the one option: "Exit", written /Exit or -Exit, upper and lower case as here.
class CAmporaSrvCmdLineInfo : public CCommandLineInfo {
public:
    void ParseParam(const wchar_t* pszParam, BOOL bFlag, BOOL bLast) override;

    // Whether the running copy is to be told to quit.
    BOOL IsExitMode() const { return m_bExitMode; }

private:
    BOOL m_bExitMode = FALSE;
};
