#include "platform/DebugOutput.h"

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/WriteSignals.h"
#include "platform/Text.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace platform {

namespace {

using linux::CFileDescriptor;

// How long a text may wait until the reader makes room.
constexpr std::chrono::milliseconds kReaderLimit{100};

// Standard error, for writing one text without blocking. Other programs share its open file description and may rely on
// blocking calls, so O_NONBLOCK is not set there.
class CErrorStream {
public:
    CErrorStream()
    {
        struct stat status = {};
        if (::fstat(STDERR_FILENO, &status) != 0) {
            return;
        }
        m_isSocket = S_ISSOCK(status.st_mode);
        m_canBlock = m_isSocket || S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode);
        if (m_canBlock && !m_isSocket) {
            m_nonBlocking = CFileDescriptor(::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        }
    }

    // Like write, but fails with EAGAIN instead of blocking. Writes PIPE_BUF bytes of a pipe or terminal at most, which
    // no other process's text can split.
    ssize_t Write(const char* bytes, std::size_t size)
    {
        if (m_isSocket) {
            return ::send(STDERR_FILENO, bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
        }
        if (!m_canBlock) {
            return ::write(STDERR_FILENO, bytes, size);
        }
        // Another user's pipe or terminal cannot be reopened. Then only poll tells that a write does not block.
        if (!m_nonBlocking && !Await(std::chrono::milliseconds(0))) {
            errno = EAGAIN;
            return -1;
        }
        return ::write(m_nonBlocking ? m_nonBlocking.Get() : STDERR_FILENO, bytes,
                       std::min<std::size_t>(size, PIPE_BUF));
    }

    // Waits until a write would not block. False when the limit has passed.
    static bool Await(std::chrono::milliseconds limit)
    {
        pollfd stream = {STDERR_FILENO, POLLOUT, 0};
        return ::poll(&stream, 1, static_cast<int>(limit.count())) > 0;
    }

private:
    bool m_isSocket = false;
    bool m_canBlock = false;       // a pipe, terminal or socket
    CFileDescriptor m_nonBlocking; // the same pipe or terminal, reopened with O_NONBLOCK; empty when that failed
};

// State of the output, shared by all threads.
struct Output {
    std::mutex mutex;          // held while one text is written
    bool isRead = true;        // the last text was written completely; otherwise the next one does not wait
    bool isIncomplete = false; // the end of the last text is missing
};
constinit Output g_output;

// Writes the text, waiting for the reader no longer than the limit. How many bytes were written.
std::size_t WriteText(const std::string& bytes, std::chrono::milliseconds limit)
{
    using std::chrono::steady_clock;
    const steady_clock::time_point deadline = steady_clock::now() + limit;
    linux::CWriteSignals signals;
    CErrorStream stream;
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t count = stream.Write(bytes.data() + written, bytes.size() - written);
        if (count > 0) {
            written += static_cast<std::size_t>(count);
        } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
            signals.Note(errno);
            break;
        } else if (errno == EAGAIN) {
            const auto rest = std::chrono::ceil<std::chrono::milliseconds>(deadline - steady_clock::now());
            if (rest.count() <= 0 || !CErrorStream::Await(rest)) {
                break;
            }
        }
    }
    return written;
}

} // namespace

void OutputDebugText(const CString& text)
{
    std::string bytes = EncodeUtf8(text);
    const std::lock_guard lock(g_output.mutex);
    if (g_output.isIncomplete) {
        bytes.insert(0, 1, '\n');
    }
    const std::size_t written = WriteText(bytes, g_output.isRead ? kReaderLimit : kReaderLimit.zero());
    g_output.isRead = written == bytes.size();
    g_output.isIncomplete = written == 0 ? g_output.isIncomplete : !g_output.isRead;
}

} // namespace platform
