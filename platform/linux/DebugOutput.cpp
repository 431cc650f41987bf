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

// How long a text may wait for somebody to read.
constexpr std::chrono::milliseconds kReaderLimit{100};

// Standard error for one text. Whoever shares it may have to read and write it with waiting, so its own flags stay as
// they are.
class CErrorStream {
public:
    CErrorStream()
    {
        struct stat status = {};
        if (::fstat(STDERR_FILENO, &status) != 0) {
            return;
        }
        m_isSocket = S_ISSOCK(status.st_mode);
        m_mayWait = m_isSocket || S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode);
        if (m_mayWait && !m_isSocket) {
            m_own = CFileDescriptor(::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        }
    }

    // As write does; EAGAIN where that would wait. At most what no other process's text comes in between.
    ssize_t Write(const char* bytes, std::size_t size)
    {
        if (m_isSocket) {
            return ::send(STDERR_FILENO, bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
        }
        if (!m_mayWait) {
            return ::write(STDERR_FILENO, bytes, size);
        }
        // Another user's pipe or terminal cannot be opened again; there it has to do that there is room at this moment.
        if (!m_own && !Await(std::chrono::milliseconds(0))) {
            errno = EAGAIN;
            return -1;
        }
        return ::write(m_own ? m_own.Get() : STDERR_FILENO, bytes, std::min<std::size_t>(size, PIPE_BUF));
    }

    // Waits until there is room, or writing fails. False when that does not come within the limit.
    static bool Await(std::chrono::milliseconds limit)
    {
        pollfd stream = {STDERR_FILENO, POLLOUT, 0};
        return ::poll(&stream, 1, static_cast<int>(limit.count())) > 0;
    }

private:
    bool m_isSocket = false;
    bool m_mayWait = false; // for a reader
    CFileDescriptor m_own;  // the same pipe or terminal, for writing without waiting; none where it cannot be had
};

// What the texts of a process know of each other.
struct Listener {
    std::mutex mutex;      // held while one text is written
    bool isHearing = true; // the last text came through; without that the next one does not wait
    bool isCut = false;    // the last text to arrive did so without its end
};
constinit Listener g_listener;

// How much of the text came through. limit: for its waiting.
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
    const std::lock_guard lock(g_listener.mutex);
    if (g_listener.isCut) {
        bytes.insert(0, 1, '\n');
    }
    const std::size_t written = WriteText(bytes, g_listener.isHearing ? kReaderLimit : kReaderLimit.zero());
    g_listener.isHearing = written == bytes.size();
    g_listener.isCut = written == 0 ? g_listener.isCut : !g_listener.isHearing;
}

} // namespace platform
