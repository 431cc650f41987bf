// Running out of memory, on purpose.
#pragma once

#include <cstddef>

namespace testing_support {

// While it lives, one allocation of the calling thread fails: the nth operator new from now (1: the next) throws
// std::bad_alloc. Objects do not nest. The C library's allocations, and those that libraries make with it, are not
// concerned.
class CFailingMemory {
public:
    explicit CFailingMemory(unsigned nth);
    ~CFailingMemory();
    CFailingMemory(const CFailingMemory&) = delete;
    CFailingMemory& operator=(const CFailingMemory&) = delete;

    // Whether that allocation was asked for.
    bool HasFailed() const;
};

} // namespace testing_support
