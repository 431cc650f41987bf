#include "testing/process/Child.h"

#include "platform/linux/FileDescriptor.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace testing_support {
namespace {

using platform::linux::CFileDescriptor;

[[noreturn]] void Fail(int code, const std::string& what)
{
    throw std::system_error(code, std::generic_category(), what);
}

// A pipe; no program that is started inherits it.
struct Pipe {
    Pipe()
    {
        std::array<int, 2> ends = {-1, -1};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            Fail(errno, "pipe");
        }
        readEnd = CFileDescriptor(ends[0]);
        writeEnd = CFileDescriptor(ends[1]);
    }

    CFileDescriptor readEnd;
    CFileDescriptor writeEnd;
};

std::vector<std::string> ChangedEnvironment(const EnvironmentChanges& changes)
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

// The signals that end a program. This program may have inherited them as ignored (nohup).
sigset_t EndSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
        sigaddset(&signals, signal);
    }
    return signals;
}

// Starts the program as the head of a process group, with these descriptors as its standard streams.
pid_t Spawn(std::vector<std::string> command, const EnvironmentChanges& environment, int in, int out, int err)
{
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
    // The test's own sockets above all: a program that inherits a listening one keeps it alive.
    ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    const sigset_t endSignals = EndSignals();
    ::posix_spawnattr_setsigdefault(&attributes, &endSignals);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF);
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

int ReadExitCode(pid_t processId)
{
    int status = 0;
    while (::waitpid(processId, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

struct CChild::Impl {
    Impl(const std::vector<std::string>& command, const EnvironmentChanges& environment)
        : processId(Spawn(command, environment, in.readEnd.Get(), out[0].writeEnd.Get(), out[1].writeEnd.Get())),
          end(static_cast<int>(::syscall(SYS_pidfd_open, processId, 0)))
    {
        in.readEnd = CFileDescriptor();
        out[0].writeEnd = CFileDescriptor();
        out[1].writeEnd = CFileDescriptor();
    }

    // What the program's pipes, made before it, are for it.
    Pipe in;
    std::array<Pipe, 2> out;
    Pipe stop; // ends reading when its write end is closed
    const pid_t processId;
    const CFileDescriptor end; // readable when the program has ended

    std::mutex mutex; // guards what follows
    std::optional<int> exitCode = {};
};

CChild::CChild(const std::vector<std::string>& command, const EnvironmentChanges& environment)
    : m_impl(std::make_unique<Impl>(command, environment))
{
}

CChild::~CChild() = default;

int CChild::ProcessId() const { return m_impl->processId; }

std::string CChild::ReadSome(std::size_t stream)
{
    // A signal that a test sends to its own process is not for the thread that reads here.
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
    const int descriptor = m_impl->out.at(stream).readEnd.Get();
    std::array<pollfd, 2> inputs = {pollfd{descriptor, POLLIN, 0}, pollfd{m_impl->stop.readEnd.Get(), POLLIN, 0}};
    while (::poll(inputs.data(), inputs.size(), -1) < 0) {
    }
    if (inputs[1].revents != 0) {
        return {};
    }
    std::array<char, 65536> buffer{};
    const ssize_t size = ::read(descriptor, buffer.data(), buffer.size());
    return size > 0 ? std::string(buffer.data(), static_cast<std::size_t>(size)) : std::string();
}

void CChild::StopReading() { m_impl->stop.writeEnd = CFileDescriptor(); }

void CChild::Write(const std::string& text)
{
    // A program that is gone must not end this one.
    sigset_t brokenPipe;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    sigset_t before;
    ::pthread_sigmask(SIG_BLOCK, &brokenPipe, &before);
    if (::write(m_impl->in.writeEnd.Get(), text.data(), text.size()) < 0 && errno == EPIPE) {
        const timespec atOnce = {};
        ::sigtimedwait(&brokenPipe, nullptr, &atOnce);
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void CChild::CloseInput() { m_impl->in.writeEnd = CFileDescriptor(); }

void CChild::Signal(int number)
{
    const std::scoped_lock lock(m_impl->mutex);
    if (!m_impl->exitCode) {
        ::kill(m_impl->processId, number);
    }
}

void CChild::Kill()
{
    const std::scoped_lock lock(m_impl->mutex);
    if (!m_impl->exitCode) {
        ::kill(-m_impl->processId, SIGKILL);
        m_impl->exitCode = ReadExitCode(m_impl->processId);
    }
}

std::optional<int> CChild::WaitForExit(std::chrono::milliseconds limit)
{
    std::unique_lock lock(m_impl->mutex);
    if (!m_impl->exitCode) {
        lock.unlock();
        pollfd input{m_impl->end.Get(), POLLIN, 0};
        if (::poll(&input, 1, static_cast<int>(limit.count())) != 1) {
            return std::nullopt;
        }
        lock.lock();
        if (!m_impl->exitCode) {
            m_impl->exitCode = ReadExitCode(m_impl->processId);
        }
    }
    return m_impl->exitCode;
}

} // namespace testing_support
