#include "platform/DebugOutput.h"

#include "platform/Text.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <pthread.h>
#include <unistd.h>

namespace platform {

namespace {

// Keeps SIGPIPE from the calling thread: standard error may be a pipe whose reader has gone, and then the text is lost
// but the program must go on. The process's own handling of the signal is left alone.
class CPipeSignalGuard {
public:
    CPipeSignalGuard()
    {
        sigemptyset(&m_pipe);
        sigaddset(&m_pipe, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        m_wasPending = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &m_pipe, &m_before);
    }
    ~CPipeSignalGuard()
    {
        if (m_raised && !m_wasPending) {
            const timespec now = {};
            while (sigtimedwait(&m_pipe, nullptr, &now) < 0 && errno == EINTR) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    CPipeSignalGuard(const CPipeSignalGuard&) = delete;
    CPipeSignalGuard& operator=(const CPipeSignalGuard&) = delete;

    // To be called when a write ended in EPIPE.
    void SetRaised() { m_raised = true; }

private:
    sigset_t m_pipe = {};
    sigset_t m_before = {};
    bool m_wasPending = false;
    bool m_raised = false;
};

} // namespace

void OutputDebugText(const CString& text)
{
    const std::string bytes = EncodeUtf8(text);
    CPipeSignalGuard guard;
    // One write, so that lines of different threads do not mix; the loop only goes on where the system took a part.
    for (std::size_t written = 0; written < bytes.size();) {
        const ssize_t count = ::write(STDERR_FILENO, bytes.data() + written, bytes.size() - written);
        if (count > 0) {
            written += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            if (count < 0 && errno == EPIPE) {
                guard.SetRaised();
            }
            return;
        }
    }
}

} // namespace platform
