// Blocks the signals that a write may raise.
#pragma once

#include <cerrno>
#include <csignal>
#include <ctime>
#include <pthread.h>

namespace platform::linux {

// As long as it lives, a write of the calling thread only fails with errno where it would otherwise raise a signal that
// ends the program: EPIPE without SIGPIPE (the pipe's reader has gone), EFBIG without SIGXFSZ (the file has the longest
// length that the process may write). SIGTTOU, which would stop a program that writes to its terminal from the
// background, is blocked too. The process's handling of the signals does not change. Made and destroyed on one thread.
class CWriteSignals {
public:
    CWriteSignals()
    {
        sigemptyset(&m_signals);
        sigaddset(&m_signals, SIGPIPE);
        sigaddset(&m_signals, SIGXFSZ);
        sigset_t blocked = m_signals;
        sigaddset(&blocked, SIGTTOU);
        pthread_sigmask(SIG_BLOCK, &blocked, &m_before);
    }
    ~CWriteSignals()
    {
        const timespec atOnce = {};
        while (m_isRaised && (sigtimedwait(&m_signals, nullptr, &atOnce) >= 0 || errno == EINTR)) {
        }
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    CWriteSignals(const CWriteSignals&) = delete;
    CWriteSignals& operator=(const CWriteSignals&) = delete;

    // To be called with the errno of each failed write; takes back the signal that came with it.
    void Note(int error) { m_isRaised = m_isRaised || error == EPIPE || error == EFBIG; }

private:
    sigset_t m_signals = {};
    sigset_t m_before = {};
    bool m_isRaised = false;
};

} // namespace platform::linux
