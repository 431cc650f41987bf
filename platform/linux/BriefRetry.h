// Retrying while another process briefly holds a lock.
#pragma once

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

namespace platform::linux {

// How long a lock is waited for that programs hold for moments only. One that holds it longer is stopped or hostile.
inline constexpr std::chrono::milliseconds kBriefLimit{500};

// Repeats a non-blocking lock operation (bool(), sets errno on failure) while another process holds the lock, for at
// most kBriefLimit. False, with errno set, on failure: ETIMEDOUT when that time has passed. Any thread.
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
