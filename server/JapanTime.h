// The time of the companies: Japan's, nine hours ahead of UTC all year, whatever the zone of this machine.
#pragma once

#include "server/Figures.h"

namespace reportd {

inline constexpr std::chrono::hours kJapanOffset{9};

// The wall clock in Japan at a moment. Any thread, as the other functions here.
constexpr LocalTime JapanTime(std::chrono::sys_seconds moment)
{
    return LocalTime(moment.time_since_epoch() + kJapanOffset);
}

// The moment of a wall-clock time in Japan.
constexpr std::chrono::sys_seconds MomentOf(LocalTime japanTime)
{
    return std::chrono::sys_seconds(japanTime.time_since_epoch() - kJapanOffset);
}

// The wall clock in Japan now.
inline LocalTime ReadJapanClock()
{
    return JapanTime(std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
}

} // namespace reportd
