// The command line, one parameter after the other.
#pragma once

#include "platform/Types.h"

#include <vector>

// Takes up what a command line says. This one has no options of its own and passes everything over.
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

// Hands every argument over, in order. arguments: without the program's name.
void ParseCommandLine(const std::vector<CString>& arguments, CCommandLineInfo& info);
