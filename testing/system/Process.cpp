#include "testing/system/Process.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace system_test {
namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void Fail(int code, const std::string& what)
{
    throw std::system_error(code, std::generic_category(), what);
}

// Both ends of a pipe, closed at the end; no program that is started inherits them.
class CPipe {
public:
    CPipe()
    {
        if (::pipe2(m_ends.data(), O_CLOEXEC) != 0) {
            Fail(errno, "pipe");
        }
    }
    ~CPipe()
    {
        CloseWriteEnd();
        ::close(m_ends[0]);
    }
    CPipe(const CPipe&) = delete;
    CPipe& operator=(const CPipe&) = delete;

    int ReadEnd() const { return m_ends[0]; }
    int WriteEnd() const { return m_ends[1]; }
    void CloseWriteEnd()
    {
        if (m_ends[1] >= 0) {
            ::close(m_ends[1]);
            m_ends[1] = -1;
        }
    }

private:
    std::array<int, 2> m_ends = {-1, -1};
};

std::vector<std::string> ChangedEnvironment(const Environment& changes)
{
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string text = *variable;
        if (!changes.contains(text.substr(0, text.find('=')))) {
            variables.push_back(text);
        }
    }
    for (const auto& [name, value] : changes) {
        if (!value.empty()) {
            variables.push_back(name + "=" + value);
        }
    }
    return variables;
}

std::vector<char*> Pointers(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

// Starts the program as the head of a process group. out, err: file descriptors.
pid_t Spawn(std::vector<std::string> command, const Environment& environment, int out, int err)
{
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
    // The test's own sockets above all: a program that inherits a listening one keeps it alive.
    ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    std::vector<std::string> variables = ChangedEnvironment(environment);
    pid_t processId = -1;
    const int error = ::posix_spawnp(&processId, command.front().c_str(), &actions, &attributes,
                                     Pointers(command).data(), Pointers(variables).data());
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        Fail(error, command.front());
    }
    return processId;
}

// Reads what both pipes give until both have ended. False when the time is up before.
bool ReadBoth(int out, int err, Clock::time_point deadline, ProcessResult& result)
{
    std::array<pollfd, 2> inputs = {pollfd{out, POLLIN, 0}, pollfd{err, POLLIN, 0}};
    const std::array<std::string*, 2> texts = {&result.out, &result.err};
    while (inputs[0].fd >= 0 || inputs[1].fd >= 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0 || ::poll(inputs.data(), inputs.size(), static_cast<int>(left.count())) == 0) {
            return false;
        }
        for (std::size_t i = 0; i < inputs.size(); ++i) {
            if (inputs[i].fd < 0 || inputs[i].revents == 0) {
                continue;
            }
            std::array<char, 65536> buffer{};
            const ssize_t size = ::read(inputs[i].fd, buffer.data(), buffer.size());
            if (size > 0) {
                texts[i]->append(buffer.data(), static_cast<std::size_t>(size));
            } else {
                inputs[i].fd = -1;
            }
        }
    }
    return true;
}

int WaitForExit(pid_t processId)
{
    int status = 0;
    while (::waitpid(processId, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

ProcessResult RunProcess(const std::vector<std::string>& command, const Environment& environment,
                         std::chrono::seconds limit)
{
    CPipe out;
    CPipe err;
    const pid_t processId = Spawn(command, environment, out.WriteEnd(), err.WriteEnd());
    out.CloseWriteEnd();
    err.CloseWriteEnd();
    ProcessResult result;
    if (!ReadBoth(out.ReadEnd(), err.ReadEnd(), Clock::now() + limit, result)) {
        ::kill(-processId, SIGKILL);
        result.err += "\n(ended: the time was up)\n";
    }
    result.exitCode = WaitForExit(processId);
    return result;
}

struct CBackgroundProcess::Impl {
    ~Impl()
    {
        if (processId > 0) {
            ::kill(-processId, SIGKILL);
            WaitForExit(processId);
        }
    }

    CPipe out; // kept open as long as the program runs: it may go on writing
    pid_t processId = -1;
};

CBackgroundProcess::CBackgroundProcess(const std::vector<std::string>& command, const Environment& environment,
                                       std::chrono::seconds limit)
    : m_impl(std::make_unique<Impl>())
{
    m_impl->processId = Spawn(command, environment, m_impl->out.WriteEnd(), m_impl->out.WriteEnd());
    m_impl->out.CloseWriteEnd();
    std::string text;
    while (text.find('\n') == std::string::npos) {
        pollfd input{m_impl->out.ReadEnd(), POLLIN, 0};
        std::array<char, 1024> buffer{};
        const ssize_t size = ::poll(&input, 1, static_cast<int>(std::chrono::milliseconds(limit).count())) == 1
                                 ? ::read(input.fd, buffer.data(), buffer.size())
                                 : 0;
        if (size <= 0) {
            throw std::runtime_error(command.front() + " did not start: " + text);
        }
        text.append(buffer.data(), static_cast<std::size_t>(size));
    }
}

CBackgroundProcess::~CBackgroundProcess() = default;

} // namespace system_test
