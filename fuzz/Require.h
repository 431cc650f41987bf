// How a fuzzer says that something is wrong.
#pragma once

#include <cstdlib>

// Ends the program when the condition does not hold; the fuzzer keeps the input that did it.
inline void Require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}
