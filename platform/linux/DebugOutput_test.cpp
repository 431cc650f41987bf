#include "platform/DebugOutput.h"

#include "platform/contract/linux/RefusedCall.h"
#include "platform/linux/FileDescriptor.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/fsuid.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <thread>

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

// Both ends of something that standard error may be.
struct Stream {
    CFileDescriptor reader;
    CFileDescriptor writer;
};

Stream MakePipe()
{
    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    return {CFileDescriptor(ends[0]), CFileDescriptor(ends[1])};
}

Stream MakeSocket()
{
    int ends[2] = {-1, -1};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    return {CFileDescriptor(ends[0]), CFileDescriptor(ends[1])};
}

Stream MakeTerminal()
{
    CFileDescriptor reader(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    EXPECT_EQ(::grantpt(reader.Get()), 0);
    EXPECT_EQ(::unlockpt(reader.Get()), 0);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread
    CFileDescriptor writer(::open(::ptsname(reader.Get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios settings = {};
    EXPECT_EQ(::tcgetattr(writer.Get(), &settings), 0);
    ::cfmakeraw(&settings);
    EXPECT_EQ(::tcsetattr(writer.Get(), TCSANOW, &settings), 0);
    return {std::move(reader), std::move(writer)};
}

// What there is to be read until nothing comes for a moment; the first of it may take longer.
std::string ReadAll(const CFileDescriptor& reader)
{
    std::string text;
    std::array<char, 65536> bytes;
    for (pollfd input = {reader.Get(), POLLIN, 0}; ::poll(&input, 1, text.empty() ? 5000 : 50) > 0;) {
        const ssize_t size = ::read(reader.Get(), bytes.data(), bytes.size());
        if (size <= 0) {
            break;
        }
        text.append(bytes.data(), static_cast<std::size_t>(size));
    }
    return text;
}

void ExpectLossesInsteadOfWaiting(const Stream& stream)
{
    const CErrorRedirection redirection(stream.writer.Get());
    const std::string line = std::string(199, 'x') + "\n";
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 5000; ++i) { // a megabyte, more than anything keeps
        OutputDebugText(std::wstring(line.begin(), line.end()));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    std::string text;
    for (int i = 0; i < 10 && !text.ends_with("heard\n"); ++i) { // a terminal may make room slowly
        ReadAll(stream.reader);
        OutputDebugText(L"heard\n");
        text = ReadAll(stream.reader);
    }
    EXPECT_THAT(text, testing::EndsWith("heard\n"));
    EXPECT_EQ(::fcntl(stream.writer.Get(), F_GETFL) & O_NONBLOCK, 0) << "of everybody who shares it";
}

TEST(LinuxDebugOutput, WhatNobodyReadsIsLost)
{
    // Symptom: a pipe that nobody read blocked the program and, through the mutex, the passes of all sessions.
    for (Stream (*make)() : {MakePipe, MakeSocket, MakeTerminal}) {
        ExpectLossesInsteadOfWaiting(make());
    }
}

TEST(LinuxDebugOutput, WhatNobodyReadsOfAnothersPipeIsLost)
{
    const Stream pipe = MakePipe();
    ::setfsuid(65534); // only the superuser changes anything by that
    ExpectLossesInsteadOfWaiting(pipe);
    ::setfsuid(::geteuid());
}

TEST(LinuxDebugOutput, AStoppedTerminalIsNotWaitedFor)
{
    const Stream terminal = MakeTerminal();
    const CErrorRedirection redirection(terminal.writer.Get());
    ASSERT_EQ(::tcflow(terminal.writer.Get(), TCOOFF), 0);
    OutputDebugText(L"lost\n");
    ASSERT_EQ(::tcflow(terminal.writer.Get(), TCOON), 0);
    OutputDebugText(L"heard\n");
    EXPECT_EQ(ReadAll(terminal.reader), "heard\n");
}

// The status of a process that has written a line from the background of this terminal.
int WriteFromBackground(const char* terminal)
{
    ::setsid();
    const CFileDescriptor control(::open(terminal, O_RDWR | O_CLOEXEC));
    termios settings = {};
    ::tcgetattr(control.Get(), &settings);
    settings.c_lflag |= TOSTOP;
    ::tcsetattr(control.Get(), TCSANOW, &settings);
    const pid_t writer = ::fork();
    if (writer == 0) {
        ::setpgid(0, 0);
        ::dup2(control.Get(), STDERR_FILENO);
        OutputDebugText(L"heard\n");
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(writer, &status, WUNTRACED);
    ::kill(writer, SIGKILL);
    return status;
}

TEST(LinuxDebugOutput, ATerminalDoesNotStopAProgramInTheBackground)
{
    // Symptom: a terminal that stops what writes from the background stopped the program in the middle of a pass.
    const Stream terminal = MakeTerminal();
    const std::string name = ::ptsname(terminal.reader.Get()); // NOLINT(concurrency-mt-unsafe): no other thread
    const pid_t leader = ::fork();
    if (leader == 0) {
        ::_exit(WriteFromBackground(name.c_str()) == 0 ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(leader, &status, 0), leader);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(ReadAll(terminal.reader), "heard\n");
}

TEST(LinuxDebugOutput, ALineAfterOneThatWasCutBeginsAnew)
{
    const Stream pipe = MakePipe();
    ASSERT_EQ(::fcntl(pipe.writer.Get(), F_SETPIPE_SZ, 4096), 4096);
    const CErrorRedirection redirection(pipe.writer.Get());
    OutputDebugText(L"read\n");
    EXPECT_EQ(ReadAll(pipe.reader), "read\n");
    const auto begin = std::chrono::steady_clock::now();
    OutputDebugText(std::wstring(5000, L'x') + L"\n");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(100)) << "the reader had no time";
    EXPECT_EQ(ReadAll(pipe.reader), std::string(4096, 'x'));
    OutputDebugText(L"next\n");
    OutputDebugText(L"last\n");
    EXPECT_EQ(ReadAll(pipe.reader), "\nnext\nlast\n");
}

TEST(LinuxDebugOutput, LongLinesOfThreadsDoNotMix)
{
    Stream pipe = MakePipe();
    std::string text;
    std::thread reader([&] {
        std::array<char, 65536> bytes;
        for (ssize_t size = 0; (size = ::read(pipe.reader.Get(), bytes.data(), bytes.size())) > 0;) {
            text.append(bytes.data(), static_cast<std::size_t>(size));
        }
    });
    {
        const CErrorRedirection redirection(pipe.writer.Get());
        const auto write = [](wchar_t letter) {
            for (int i = 0; i < 50; ++i) {
                OutputDebugText(std::wstring(9000, letter) + L"\n");
            }
        };
        std::thread first(write, L'a');
        std::thread second(write, L'b');
        first.join();
        second.join();
    }
    pipe.writer = CFileDescriptor();
    reader.join();
    EXPECT_THAT(text, testing::AllOf(testing::HasSubstr("a\n"), testing::HasSubstr("b\n")));
    EXPECT_EQ(text.find("ab"), std::string::npos);
    EXPECT_EQ(text.find("ba"), std::string::npos);
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

TEST(LinuxDebugOutput, AWriteThatWritesNothingIsNotRepeated)
{
    const CFileDescriptor file(::memfd_create("stderr", MFD_CLOEXEC));
    const CErrorRedirection redirection(file.Get());
    std::thread([] {
        testing_support::RefuseCall(SYS_write, 0); // succeeds with 0
        errno = EINTR;                             // of a call before
        OutputDebugText(L"lost\n");
    }).join();
    OutputDebugText(L"heard\n");
    std::array<char, 16> bytes = {};
    EXPECT_EQ(::pread(file.Get(), bytes.data(), bytes.size(), 0), 6);
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
