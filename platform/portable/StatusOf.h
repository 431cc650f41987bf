// Running out of memory as a COM status.
#pragma once

#include "platform/Types.h"

#include <new>

namespace platform::portable {

// Runs the body of a function that gives its failures as a status: body's status, or, when it throws std::bad_alloc,
// E_OUTOFMEMORY with an empty result.
template <class Result, class Body>
HRESULT StatusOf(Result* result, Body body)
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        *result = {};
        return E_OUTOFMEMORY;
    }
}

} // namespace platform::portable
