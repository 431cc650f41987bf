#include "engine/RandomRule.h"

#include "platform/Clock.h"

#include <algorithm>

LONG RandomMinutes(int draw, LONG minimum, LONG maximum)
{
    const auto [low, high] = std::minmax(minimum, maximum);
    return static_cast<LONG>(draw * (static_cast<double>(high) - low) / 32768 + low);
}

LONG DrawRandomMinutes(LONG minimum, LONG maximum)
{
    static CRandomGenerator generator(static_cast<std::uint32_t>(platform::ReadTime()));
    return RandomMinutes(generator.Next(), minimum, maximum);
}
