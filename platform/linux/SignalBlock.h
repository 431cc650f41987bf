// Keeps signals from a thread.
#pragma once

#include <csignal>
#include <pthread.h>

namespace platform::linux {

// As long as it lives, these signals, beside those that are blocked already, do not reach the calling thread and the
// threads that it starts meanwhile. Made and destroyed on one thread.
class CSignalBlock {
public:
    explicit CSignalBlock(const sigset_t& signals) { pthread_sigmask(SIG_BLOCK, &signals, &m_before); }
    ~CSignalBlock() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    CSignalBlock(const CSignalBlock&) = delete;
    CSignalBlock& operator=(const CSignalBlock&) = delete;

private:
    sigset_t m_before = {};
};

} // namespace platform::linux
