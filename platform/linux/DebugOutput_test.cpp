#include "platform/DebugOutput.h"

#include "platform/linux/FileDescriptor.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>

namespace platform {
namespace {

using linux::CFileDescriptor;

// Puts a descriptor in the place of standard error.
class CErrorRedirection {
public:
    explicit CErrorRedirection(int descriptor) : m_before(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3))
    {
        EXPECT_EQ(::dup2(descriptor, STDERR_FILENO), STDERR_FILENO);
    }
    ~CErrorRedirection() { ::dup2(m_before.Get(), STDERR_FILENO); }
    CErrorRedirection(const CErrorRedirection&) = delete;
    CErrorRedirection& operator=(const CErrorRedirection&) = delete;

private:
    CFileDescriptor m_before;
};

TEST(LinuxDebugOutput, ALineIsOneWriteInUtf8)
{
    int ends[2] = {-1, -1};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
    const CFileDescriptor reader(ends[0]);
    {
        const CFileDescriptor writer(ends[1]);
        const CErrorRedirection redirection(writer.Get());
        OutputDebugText(L"[TRA] caf\u00E9 \u6771\n");
        OutputDebugText(std::wstring(5000, L'x') + L"\n");
        OutputDebugText(L"");
    }
    const auto next = [&reader] {
        std::array<char, 8192> bytes;
        const ssize_t size = ::recv(reader.Get(), bytes.data(), bytes.size(), 0);
        return std::string(bytes.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    };
    EXPECT_EQ(next(), "[TRA] caf\xC3\xA9 \xE6\x9D\xB1\n");
    EXPECT_EQ(next(), std::string(5000, 'x') + "\n");
    EXPECT_EQ(next(), "");
}

TEST(LinuxDebugOutput, AReaderThatHasGoneDoesNotEndTheProgram)
{
    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const CFileDescriptor writer(ends[1]);
    {
        const CFileDescriptor reader(ends[0]);
    }
    {
        const CErrorRedirection redirection(writer.Get());
        OutputDebugText(L"lost\n");
    }
    sigset_t pending;
    ASSERT_EQ(::sigpending(&pending), 0);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
    sigset_t blocked;
    ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, nullptr, &blocked), 0);
    EXPECT_EQ(sigismember(&blocked, SIGPIPE), 0);
}

TEST(LinuxDebugOutput, AClosedStandardErrorLosesTheText)
{
    const CFileDescriptor before(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3));
    ASSERT_EQ(::close(STDERR_FILENO), 0);
    OutputDebugText(L"lost\n");
    EXPECT_EQ(::dup2(before.Get(), STDERR_FILENO), STDERR_FILENO);
}

} // namespace
} // namespace platform
