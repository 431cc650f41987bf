#include "platform/linux/Polling.h"

#include "platform/linux/ErrorCode.h"

#include <algorithm>
#include <cerrno>

namespace platform::linux {

Deadline DeadlineAfter(DWORD timeoutMs)
{
    if (timeoutMs == INFINITE) {
        return std::nullopt;
    }
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
}

bool Poll(std::span<pollfd> descriptors, const Deadline& deadline)
{
    timespec rest = {};
    if (deadline) {
        using namespace std::chrono;
        const auto left = std::max(nanoseconds(0), nanoseconds(*deadline - steady_clock::now()));
        rest.tv_sec = duration_cast<seconds>(left).count();
        rest.tv_nsec = (left % seconds(1)).count();
    }
    if (::ppoll(descriptors.data(), descriptors.size(), deadline ? &rest : nullptr, nullptr) < 0 && errno != EINTR) {
        SetLastErrorFrom(errno);
        return false;
    }
    return true;
}

} // namespace platform::linux
