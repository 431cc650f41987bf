// Blocks the signals that a write may raise.
#pragma once

#include <cerrno>
#include <csignal>
#include <ctime>
#include <optional>
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
        if (!s_areBlockedForThread) {
            m_before = Block();
        }
    }
    ~CWriteSignals()
    {
        if (!m_before) {
            return;
        }
        const sigset_t raised = Raised();
        const timespec atOnce = {};
        while (m_isRaised && (sigtimedwait(&raised, nullptr, &atOnce) >= 0 || errno == EINTR)) {
        }
        pthread_sigmask(SIG_SETMASK, &*m_before, nullptr);
    }
    CWriteSignals(const CWriteSignals&) = delete;
    CWriteSignals& operator=(const CWriteSignals&) = delete;

    // Blocks the signals until the calling thread ends, so that its objects of this class need no system calls.
    static void BlockForThread()
    {
        Block();
        s_areBlockedForThread = true;
    }

    // To be called with the errno of each failed write; takes back the signal that came with it.
    void Note(int error) { m_isRaised = m_isRaised || error == EPIPE || error == EFBIG; }

private:
    // The signals that come with a failed write.
    static sigset_t Raised()
    {
        sigset_t signals = {};
        sigemptyset(&signals);
        sigaddset(&signals, SIGPIPE);
        sigaddset(&signals, SIGXFSZ);
        return signals;
    }

    // What was blocked before.
    static sigset_t Block()
    {
        sigset_t signals = Raised();
        sigaddset(&signals, SIGTTOU);
        sigset_t before = {};
        pthread_sigmask(SIG_BLOCK, &signals, &before);
        return before;
    }

    static inline thread_local bool s_areBlockedForThread = false;

    std::optional<sigset_t> m_before = {}; // none: they are blocked anyway
    bool m_isRaised = false;
};

} // namespace platform::linux
