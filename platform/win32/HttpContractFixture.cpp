// What HTTP on Windows does for the contract suite.
#include "platform/contract/HttpFixture.h"

namespace contract {

namespace {

bool IsWine() { return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr; }

} // namespace

// Windows takes proxies from its settings; only wine looks here.
void UseNoProxy() { ::SetEnvironmentVariableW(L"http_proxy", nullptr); }

// The system's own limit is longer than a test may last, and wine has none.
bool LimitsSilence() { return false; }

bool TellsBrokenAnswers() { return !IsWine(); }

bool LimitsRedirects() { return !IsWine(); }

} // namespace contract
