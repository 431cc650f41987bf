// What HTTP on Linux does for the contract suite.
#include "platform/contract/HttpFixture.h"

#include <cstdlib>

namespace contract {

void UseNoProxy()
{
    for (const char* name : {"http_proxy", "all_proxy", "ALL_PROXY"}) {
        ::unsetenv(name);
    }
}

bool IsWineInternet() { return false; }

} // namespace contract
