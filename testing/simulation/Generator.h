// The simulator's own generator of random numbers, equal on every system.
#pragma once

#include <cstdint>

namespace simulation {

// SplitMix64. The same seed gives the same numbers on every system, which the library's distributions do not promise.
class CGenerator {
public:
    explicit CGenerator(std::uint64_t seed) : m_state(seed) {}

    std::uint64_t Next()
    {
        m_state += 0x9E3779B97F4A7C15;
        std::uint64_t mixed = m_state;
        mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
        mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
        return mixed ^ (mixed >> 31);
    }
    // 0 to count - 1; count: not 0. The slight favour that small numbers get does not matter here.
    std::uint64_t Below(std::uint64_t count) { return Next() % count; }
    // low to high, both included.
    std::int64_t Between(std::int64_t low, std::int64_t high)
    {
        return low + static_cast<std::int64_t>(Below(static_cast<std::uint64_t>(high - low) + 1));
    }
    bool Chance(unsigned perMille) { return Below(1000) < perMille; }

private:
    std::uint64_t m_state;
};

} // namespace simulation
