#include "app/AmporaSrvCmdLineInfo.h"

#include <string_view>

void CAmporaSrvCmdLineInfo::ParseParam(const wchar_t* pszParam, BOOL bFlag, BOOL bLast)
{
    CCommandLineInfo::ParseParam(pszParam, bFlag, bLast);
    if (bFlag && std::wstring_view(pszParam) == L"Exit") {
        m_bExitMode = TRUE;
    }
}
