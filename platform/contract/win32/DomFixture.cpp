#include "platform/contract/DomFixture.h"

#include <windows.h>

namespace contract {

bool IsWineDom() { return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr; }

} // namespace contract
