// Sleeping until a descriptor is readable.
#pragma once

#include "platform/Types.h"

#include <chrono>
#include <optional>
#include <poll.h>
#include <span>

namespace platform::linux {

// When a wait gives up; none for never.
using Deadline = std::optional<std::chrono::steady_clock::time_point>;

// timeoutMs from now; INFINITE: never.
Deadline DeadlineAfter(DWORD timeoutMs);

// Sleeps until a descriptor is readable, the deadline has come or a signal was handled. False, with the last error set,
// on failure. Needs no memory.
bool Poll(std::span<pollfd> descriptors, const Deadline& deadline);

} // namespace platform::linux
