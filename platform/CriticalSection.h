// A recursive lock of one process.
#pragma once

#include <memory>

namespace platform {

// Recursive lock. Any thread may enter it; the thread that entered leaves it, as often as it entered.
class CCriticalSection {
public:
    CCriticalSection();
    // No thread may be inside.
    ~CCriticalSection();
    CCriticalSection(const CCriticalSection&) = delete;
    CCriticalSection& operator=(const CCriticalSection&) = delete;

    // Waits, without limit, until no other thread is inside.
    void Enter();
    void Leave();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace platform
