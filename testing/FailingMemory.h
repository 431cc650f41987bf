// Running out of memory, on purpose.
#pragma once

#include <cstddef>

namespace testing_support {

// While it lives, allocations fail: operator new throws std::bad_alloc. Objects do not nest. The C library's
// allocations, and those that libraries make with it, are not concerned.
class CFailingMemory {
public:
    // Whether an allocation of the calling thread fails; asked at each one, on any thread. Must not allocate.
    using Chooser = bool (*)();

    // One allocation of the calling thread fails: the nth from now (1: the next).
    explicit CFailingMemory(unsigned nth);
    // Those fail that are chosen, on whatever thread. Made and destroyed while no other thread allocates.
    explicit CFailingMemory(Chooser fails);
    ~CFailingMemory();
    CFailingMemory(const CFailingMemory&) = delete;
    CFailingMemory& operator=(const CFailingMemory&) = delete;

    // Whether the nth allocation was asked for.
    bool HasFailed() const;
};

} // namespace testing_support
