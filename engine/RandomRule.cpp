#include "engine/RandomRule.h"

#include "engine/AutoLock.h"
#include "platform/Clock.h"

#include <algorithm>

LONG RandomMinutes(int draw, LONG minimum, LONG maximum)
{
    const auto [low, high] = std::minmax(minimum, maximum);
    return static_cast<LONG>(draw * (static_cast<double>(high) - low) / 32768 + low);
}

LONG CRandomRule::Draw(LONG minimum, LONG maximum)
{
    const CAutoLock lock(&m_lock);
    if (!m_generator) {
        m_generator.emplace(static_cast<std::uint32_t>(platform::ReadTime()));
    }
    return RandomMinutes(m_generator->Next(), minimum, maximum);
}
