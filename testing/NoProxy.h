// Requests to loopback must not go through somebody's proxy. Linux only.
#pragma once

#include <cstdlib>

namespace testing_support {

// Forgets the proxies of the environment. Before other threads run.
inline void UseNoProxy()
{
    for (const char* name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
        ::unsetenv(name); // NOLINT(concurrency-mt-unsafe): there are no other threads yet
    }
}

} // namespace testing_support
