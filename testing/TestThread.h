// Threads from lambdas, for tests on the simulated machine.
#pragma once

#include "platform/Thread.h"

#include <functional>
#include <utility>

namespace testing_support {

// Starts a thread that runs body.
inline platform::ThreadPtr StartBody(std::function<void()> body)
{
    auto* handedOver = new std::function<void()>(std::move(body));
    return platform::StartThread(
        [](void* argument) -> DWORD {
            const std::unique_ptr<std::function<void()>> owned(static_cast<std::function<void()>*>(argument));
            (*owned)();
            return 0;
        },
        handedOver);
}

} // namespace testing_support
