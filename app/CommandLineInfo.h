// Parsing of the command line.
#pragma once

#include "platform/Types.h"

#include <vector>

// Receives the parameters of a command line. This base class ignores them.
class CCommandLineInfo {
public:
    CCommandLineInfo() = default;
    virtual ~CCommandLineInfo() = default;
    CCommandLineInfo(const CCommandLineInfo&) = delete;
    CCommandLineInfo& operator=(const CCommandLineInfo&) = delete;

    // One parameter. pszParam: not null, without the one slash or dash that makes it a flag; bFlag: whether it had
    // that; bLast: whether it is the last one.
    virtual void ParseParam(const wchar_t* pszParam, BOOL bFlag, BOOL bLast);
};

// Calls ParseParam for every argument, in order. arguments: without the program's name.
void ParseCommandLine(const std::vector<CString>& arguments, CCommandLineInfo& info);
