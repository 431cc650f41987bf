// Random minutes between two bounds.
#pragma once

#include "platform/CriticalSection.h"
#include "platform/Types.h"

#include <optional>

// The generator of the classic C runtime of Windows, so that every system draws the same numbers from the same seed.
class CRandomGenerator {
public:
    explicit CRandomGenerator(std::uint32_t seed) : m_state(seed) {}
    // The next number, 0 to 32767.
    int Next()
    {
        m_state = m_state * 214013 + 2531011;
        return static_cast<int>((m_state >> 16) & 0x7FFF);
    }

private:
    std::uint32_t m_state;
};

// The minutes that a drawn number gives. draw: 0 to 32767; minimum, maximum: minutes, swapped when reversed.
// draw x (high - low) / 32768 + low in double precision, truncated toward zero: the upper bound itself is drawn only
// when both are equal, and a negative bound only by a draw of 0.
LONG RandomMinutes(int draw, LONG minimum, LONG maximum);

// Draws minutes. Each updater has one, and a process has one updater.
class CRandomRule {
public:
    // minimum, maximum: as for RandomMinutes. The first call seeds the generator with the current time. Any thread.
    LONG Draw(LONG minimum, LONG maximum);

private:
    platform::CCriticalSection m_lock; // a worker that outlives its Stop may draw at the same time as the next one
    std::optional<CRandomGenerator> m_generator;
};
