#include "app/CommandLineInfo.h"

void CCommandLineInfo::ParseParam(const wchar_t* /*pszParam*/, BOOL /*bFlag*/, BOOL /*bLast*/) {}

void ParseCommandLine(const std::vector<CString>& arguments, CCommandLineInfo& info)
{
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const CString& argument = arguments[i];
        const bool isFlag = argument.starts_with(L'/') || argument.starts_with(L'-');
        info.ParseParam(argument.c_str() + (isFlag ? 1 : 0), isFlag ? TRUE : FALSE,
                        i + 1 == arguments.size() ? TRUE : FALSE);
    }
}
