#include "testing/process/linux/PeerProcess.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

namespace testing_support {

using platform::linux::CFileDescriptor;

namespace {

bool MakePipe(CFileDescriptor* readEnd, CFileDescriptor* writeEnd)
{
    int ends[2] = {-1, -1};
    const bool made = ::pipe2(ends, O_CLOEXEC) == 0;
    *readEnd = CFileDescriptor(ends[0]);
    *writeEnd = CFileDescriptor(ends[1]);
    return made;
}

} // namespace

bool CPeerProcess::Do(const std::string& command)
{
    if (m_process < 0) {
        Start();
    }
    const std::string line = command + "\n";
    if (::write(m_commands.Get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        return false;
    }
    char answer[2] = {};
    return ::read(m_answers.Get(), answer, sizeof(answer)) == 2 && answer[0] == '1';
}

void CPeerProcess::Kill()
{
    if (m_process < 0) {
        return;
    }
    ::kill(m_process, SIGKILL);
    while (::waitpid(m_process, nullptr, 0) < 0 && errno == EINTR) {
    }
    m_process = -1;
}

void CPeerProcess::Start()
{
    CFileDescriptor commands;
    CFileDescriptor answers;
    if (!MakePipe(&commands, &m_commands) || !MakePipe(&m_answers, &answers)) {
        return;
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, commands.Get(), STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, answers.Get(), STDOUT_FILENO);
    char program[] = AMPORA_CONTRACT_PEER;
    char* const arguments[] = {program, nullptr};
    if (::posix_spawn(&m_process, program, &actions, nullptr, arguments, environ) != 0) {
        m_process = -1;
    }
    ::posix_spawn_file_actions_destroy(&actions);
}

} // namespace testing_support
