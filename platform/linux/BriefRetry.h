// Waiting for what another process keeps for moments only.
#pragma once

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

namespace platform::linux {

// How long such a thing is waited for. A program that keeps it longer is stopped, or means harm.
inline constexpr std::chrono::milliseconds kBriefLimit{500};

// Tries a locking operation, which gives false with errno set, until it succeeds, fails for another reason than that
// somebody has the lock, or kBriefLimit is over, which is a failure with ETIMEDOUT. Whether it succeeded.
template <class Operation>
bool RetryBriefly(Operation operation)
{
    const auto deadline = std::chrono::steady_clock::now() + kBriefLimit;
    for (std::chrono::milliseconds pause{1};; pause = std::min(pause * 2, std::chrono::milliseconds(50))) {
        if (operation()) {
            return true;
        }
        if (errno != EAGAIN && errno != EACCES && errno != EINTR) {
            return false;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            errno = ETIMEDOUT;
            return false;
        }
        std::this_thread::sleep_for(pause);
    }
}

} // namespace platform::linux
