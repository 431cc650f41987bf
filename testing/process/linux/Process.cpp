#include "testing/process/Process.h"

#include <array>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace testing_support {
namespace {

[[noreturn]] void Fail(int code, const std::string& what)
{
    throw std::system_error(code, std::generic_category(), what);
}

// A descriptor, closed at the end.
class CDescriptor {
public:
    explicit CDescriptor(int descriptor = -1) : m_descriptor(descriptor) {}
    ~CDescriptor() { Close(); }
    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;

    int Get() const { return m_descriptor; }
    void Set(int descriptor)
    {
        Close();
        m_descriptor = descriptor;
    }
    void Close()
    {
        if (m_descriptor >= 0) {
            ::close(m_descriptor);
            m_descriptor = -1;
        }
    }

private:
    int m_descriptor;
};

// A pipe; no program that is started inherits it.
struct Pipe {
    Pipe()
    {
        std::array<int, 2> ends = {-1, -1};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            Fail(errno, "pipe");
        }
        readEnd.Set(ends[0]);
        writeEnd.Set(ends[1]);
    }

    CDescriptor readEnd;
    CDescriptor writeEnd;
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

// Starts the program as the head of a process group, with these descriptors as its standard streams.
pid_t Spawn(std::vector<std::string> command, const Environment& environment, int in, int out, int err)
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

int ReadExitCode(pid_t processId)
{
    int status = 0;
    while (::waitpid(processId, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// What the program has left in its pipes when it ends comes at once, unless something that it started keeps them.
constexpr std::chrono::seconds kLastWordsLimit{2};

} // namespace

struct CBackgroundProcess::Impl {
    Impl(const std::vector<std::string>& command, const Environment& environment)
        : processId(Spawn(command, environment, in.readEnd.Get(), out.writeEnd.Get(), err.writeEnd.Get())),
          end(static_cast<int>(::syscall(SYS_pidfd_open, processId, 0))), reader([this] { ReadBoth(); })
    {
        in.readEnd.Close();
        out.writeEnd.Close();
        err.writeEnd.Close();
    }

    ~Impl()
    {
        if (!exitCode) {
            ::kill(-processId, SIGKILL);
            ReadExitCode(processId);
        }
        stop.writeEnd.Close();
        reader.join();
    }

    // Reads what both pipes give until both have ended or it is told to stop.
    void ReadBoth()
    {
        std::array<pollfd, 3> inputs = {pollfd{out.readEnd.Get(), POLLIN, 0}, pollfd{err.readEnd.Get(), POLLIN, 0},
                                        pollfd{stop.readEnd.Get(), POLLIN, 0}};
        while (inputs[0].fd >= 0 || inputs[1].fd >= 0) {
            if (::poll(inputs.data(), inputs.size(), -1) < 0) {
                continue;
            }
            if (inputs[2].revents != 0) {
                break;
            }
            for (const std::size_t i : {0U, 1U}) {
                if (inputs[i].fd >= 0 && inputs[i].revents != 0 && !ReadSome(inputs[i].fd, texts[i])) {
                    inputs[i].fd = -1;
                }
            }
        }
        const std::scoped_lock lock(mutex);
        isAllRead = true;
        hasRead.notify_all();
    }

    // False at the end of the pipe.
    bool ReadSome(int descriptor, std::string& text)
    {
        std::array<char, 65536> buffer{};
        const ssize_t size = ::read(descriptor, buffer.data(), buffer.size());
        const std::scoped_lock lock(mutex);
        if (size > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(size));
        }
        hasRead.notify_all();
        return size > 0;
    }

    bool WaitForFirstLine(std::chrono::seconds limit)
    {
        std::unique_lock lock(mutex);
        const auto hasLine = [this] { return texts[0].find('\n') != std::string::npos; };
        return hasRead.wait_for(lock, limit, [&] { return hasLine() || isAllRead; }) && hasLine();
    }

    // What the program's pipes, made before it, are for it.
    Pipe in;
    Pipe out;
    Pipe err;
    Pipe stop; // ends the reader when its write end is closed
    const pid_t processId;
    const CDescriptor end; // readable when the program has ended

    std::mutex mutex; // guards what follows
    std::condition_variable hasRead;
    std::array<std::string, 2> texts = {}; // standard output, standard error
    bool isAllRead = false;
    std::optional<int> exitCode = {};

    std::thread reader; // the last one: it uses all of them
};

CBackgroundProcess::CBackgroundProcess(const std::vector<std::string>& command, const Environment& environment)
    : m_impl(std::make_unique<Impl>(command, environment))
{
}

CBackgroundProcess::CBackgroundProcess(const std::vector<std::string>& command, const Environment& environment,
                                       std::chrono::seconds limit)
    : CBackgroundProcess(command, environment)
{
    if (!m_impl->WaitForFirstLine(limit)) {
        throw std::runtime_error(command.front() + " did not start: " + Out() + Err());
    }
}

CBackgroundProcess::~CBackgroundProcess() = default;

int CBackgroundProcess::ProcessId() const { return m_impl->processId; }

std::string CBackgroundProcess::Out() const
{
    const std::scoped_lock lock(m_impl->mutex);
    return m_impl->texts[0];
}

std::string CBackgroundProcess::Err() const
{
    const std::scoped_lock lock(m_impl->mutex);
    return m_impl->texts[1];
}

void CBackgroundProcess::Write(const std::string& text)
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

void CBackgroundProcess::CloseInput() { m_impl->in.writeEnd.Close(); }

void CBackgroundProcess::Signal(int number)
{
    const std::scoped_lock lock(m_impl->mutex);
    if (!m_impl->exitCode) {
        ::kill(m_impl->processId, number);
    }
}

std::optional<int> CBackgroundProcess::WaitForExit(std::chrono::milliseconds limit)
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
    m_impl->hasRead.wait_for(lock, kLastWordsLimit, [this] { return m_impl->isAllRead; });
    return m_impl->exitCode;
}

ProcessResult RunProcess(const std::vector<std::string>& command, const Environment& environment,
                         std::chrono::seconds limit)
{
    CBackgroundProcess process(command, environment);
    process.CloseInput();
    const std::optional<int> exitCode = process.WaitForExit(limit);
    return {exitCode.value_or(-1), process.Out(), process.Err() + (exitCode ? "" : "\n(ended: the time was up)\n")};
}

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit)
{
    constexpr std::chrono::milliseconds kPause{5};
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(kPause);
    }
    return true;
}

} // namespace testing_support
