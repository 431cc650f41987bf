#include "platform/Program.h"

#include "platform/linux/FileDescriptor.h"
#include "platform/Text.h"
#include "testing/ScratchFolder.h"

#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace platform::linux {
namespace {

using testing::ElementsAre;

// Writes down what it got: its folder, what its standard streams are, whether it has the file that the test holds
// open, whether it leads a session, which of the first 28 signals it blocks and ignores.
constexpr const char* kReport = R"script(#!/bin/sh
here=/proc/$$
seen="$(pwd) $(readlink $here/fd/0) $(readlink $here/fd/1) $(readlink $here/fd/2) $(readlink $here/fd/100)
session $(($(cut -d ' ' -f 6 $here/stat) - $$))
$(grep -E '^Sig(Blk|Ign)' $here/status | grep -o '.......$')"
echo "$seen" >"$0.seen"
)script";

// As long as it lives, the process ignores one signal and blocks another one.
class CUnusualSignals {
public:
    CUnusualSignals() : m_ignored(std::signal(SIGUSR2, SIG_IGN))
    {
        sigset_t blocked;
        sigemptyset(&blocked);
        sigaddset(&blocked, SIGUSR1);
        ::pthread_sigmask(SIG_BLOCK, &blocked, &m_before);
    }
    ~CUnusualSignals()
    {
        ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
        std::signal(SIGUSR2, m_ignored);
    }
    CUnusualSignals(const CUnusualSignals&) = delete;
    CUnusualSignals& operator=(const CUnusualSignals&) = delete;

private:
    void (*m_ignored)(int);
    sigset_t m_before = {};
};

TEST(LinuxProgram, AStartedProgramHasNothingOfItsStarter)
{
    const testing_support::CScratchFolder scratch;
    const std::filesystem::path path = scratch.Write("report", kReport);
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    const CFileDescriptor any(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    const CFileDescriptor inheritable(::fcntl(any.Get(), F_DUPFD, 100));
    ASSERT_EQ(inheritable.Get(), 100);
    const CUnusualSignals signals;
    const CFileDescriptor input(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
    const CFileDescriptor other(::open("/dev/zero", O_RDONLY | O_CLOEXEC));
    ::dup2(other.Get(), STDIN_FILENO);
    const ProgramPtr program = StartProgram(DecodeUtf8(path.string()));
    ::dup2(input.Get(), STDIN_FILENO);
    ASSERT_NE(program, nullptr);
    EXPECT_EQ(WaitForProgramEnd(program, 20000), WAIT_OBJECT_0);

    std::ifstream file(path.string() + ".seen");
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    EXPECT_THAT(lines, ElementsAre("/ /dev/null /dev/null /dev/null ", "session 0", "0000000", "0000000"));
}

} // namespace
} // namespace platform::linux
