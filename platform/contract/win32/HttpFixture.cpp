// What HTTP on Windows does for the contract suite.
#include "platform/contract/HttpFixture.h"

namespace contract {

// Windows takes proxies from its settings; only wine looks here.
void UseNoProxy() { ::SetEnvironmentVariableW(L"http_proxy", nullptr); }

bool IsWineInternet() { return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr; }

} // namespace contract
