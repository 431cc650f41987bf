// Keeps the signals of failing writes from a thread.
#pragma once

#include <cerrno>
#include <csignal>
#include <ctime>
#include <pthread.h>

namespace platform::linux {

// As long as it lives, a write of the calling thread that fails ends in an errno alone: EPIPE, a pipe whose reader has
// gone, without SIGPIPE, and EFBIG, a file as long as the process may make one, without SIGXFSZ, either of which would
// end the program. And a terminal takes what is written from the background, without SIGTTOU, which would stop it. The
// process's own handling of the signals is left alone. Made and destroyed on one thread.
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

    // To be told why a write failed, an errno.
    void Note(int error) { m_isRaised = m_isRaised || error == EPIPE || error == EFBIG; }

private:
    sigset_t m_signals = {};
    sigset_t m_before = {};
    bool m_isRaised = false;
};

} // namespace platform::linux
