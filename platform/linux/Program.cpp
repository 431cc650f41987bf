#include "platform/Program.h"

#include "platform/LastError.h"
#include "platform/linux/Environment.h"
#include "platform/linux/ErrorCode.h"
#include "platform/linux/FileDescriptor.h"
#include "platform/linux/MessageSocket.h"
#include "platform/linux/NamedFile.h"
#include "platform/linux/NativePath.h"
#include "platform/linux/Polling.h"
#include "platform/linux/SessionFolder.h"
#include "platform/Text.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <optional>
#include <spawn.h>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <vector>

namespace platform {

namespace fs = std::filesystem;

class CProgram {
public:
    CProgram(pid_t id, linux::CFileDescriptor descriptor) : m_id(id), m_descriptor(std::move(descriptor)) {}
    ~CProgram()
    {
        // One that this program has started and that has ended would otherwise stay in the system's table.
        siginfo_t end = {};
        ::waitid(P_PIDFD, static_cast<id_t>(m_descriptor.Get()), &end, WEXITED | WNOHANG);
    }
    CProgram(const CProgram&) = delete;
    CProgram& operator=(const CProgram&) = delete;

    const pid_t m_id;
    const linux::CFileDescriptor m_descriptor; // readable when it has ended; none when the system refuses one
};

namespace {

std::string ProcessFolder(pid_t id) { return "/proc/" + std::to_string(id); }

ProgramPtr Open(pid_t id)
{
    // The C library's header of this call cannot be used from C++ before version 2.37.
    return std::make_shared<CProgram>(id, linux::CFileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, id, 0))));
}

// A message socket as the system lists it.
struct ListedSocket {
    std::string link;   // what the descriptor of its owner refers to
    std::string folder; // the owner's descriptor of the session folder, a number (MessageSocket.cpp)
};

// All message sockets of this name, in whatever session.
std::vector<ListedSocket> ListSockets(const std::string& name)
{
    const std::string start = "/proc/self/fd/";
    const std::string end = "/" + name;
    std::vector<ListedSocket> sockets;
    std::ifstream list("/proc/net/unix");
    for (std::string line; std::getline(list, line);) {
        std::istringstream columns(line);
        std::string skipped;
        std::string number;
        std::string path;
        columns >> skipped >> skipped >> skipped >> skipped >> skipped >> skipped >> number >> path;
        if (path.starts_with(start) && path.ends_with(end) && path.size() > start.size() + end.size()) {
            sockets.push_back(
                {"socket:[" + number + "]", path.substr(start.size(), path.size() - start.size() - end.size())});
        }
    }
    return sockets;
}

// Whether a process has this socket, made in this folder.
bool HasSocket(pid_t id, const ListedSocket& socket, const struct stat& folder)
{
    const std::string descriptors = ProcessFolder(id) + "/fd";
    struct stat own = {};
    if (::stat((descriptors + "/" + socket.folder).c_str(), &own) != 0 || own.st_dev != folder.st_dev ||
        own.st_ino != folder.st_ino) {
        return false;
    }
    std::error_code error;
    for (fs::directory_iterator each(descriptors, error), end; !error && each != end; each.increment(error)) {
        std::error_code gone;
        if (fs::read_symlink(each->path(), gone) == socket.link) {
            return true;
        }
    }
    return false;
}

std::optional<pid_t> ProcessNumber(const std::string& name)
{
    pid_t id = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), id);
    return error == std::errc() && end == name.data() + name.size() ? std::optional(id) : std::nullopt;
}

// Null when no process that the system shows has one of them.
ProgramPtr FindOwner(const std::vector<ListedSocket>& sockets, const struct stat& folder)
{
    std::error_code error;
    for (fs::directory_iterator each("/proc", error), end; !error && each != end; each.increment(error)) {
        const std::optional<pid_t> id = ProcessNumber(each->path().filename());
        for (const ListedSocket& socket : sockets) {
            if (!id || !HasSocket(*id, socket, folder)) {
                continue;
            }
            // Another process may have got the number meanwhile.
            ProgramPtr program = Open(*id);
            if (HasSocket(*id, socket, folder)) {
                return program;
            }
        }
    }
    return nullptr;
}

bool IsProgram(const std::string& path)
{
    std::error_code error;
    return fs::is_regular_file(path, error) && ::access(path.c_str(), X_OK) == 0;
}

// What a started program gets from this one.
class CSpawnSettings {
public:
    CSpawnSettings()
    {
        sigset_t signals;
        sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&m_attributes, &signals);
        sigfillset(&signals);
        ::posix_spawnattr_setsigdefault(&m_attributes, &signals);
        ::posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        ::posix_spawn_file_actions_addopen(&m_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        ::posix_spawn_file_actions_addopen(&m_actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        ::posix_spawn_file_actions_addopen(&m_actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        ::posix_spawn_file_actions_addclosefrom_np(&m_actions, STDERR_FILENO + 1);
        ::posix_spawn_file_actions_addchdir_np(&m_actions, "/");
    }
    ~CSpawnSettings()
    {
        ::posix_spawn_file_actions_destroy(&m_actions);
        ::posix_spawnattr_destroy(&m_attributes);
    }
    CSpawnSettings(const CSpawnSettings&) = delete;
    CSpawnSettings& operator=(const CSpawnSettings&) = delete;

    const posix_spawnattr_t* Attributes() const { return &m_attributes; }
    const posix_spawn_file_actions_t* Actions() const { return &m_actions; }

private:
    static posix_spawnattr_t MakeAttributes()
    {
        posix_spawnattr_t attributes;
        ::posix_spawnattr_init(&attributes);
        return attributes;
    }
    static posix_spawn_file_actions_t MakeActions()
    {
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        return actions;
    }

    posix_spawnattr_t m_attributes = MakeAttributes();
    posix_spawn_file_actions_t m_actions = MakeActions();
};

} // namespace

ProgramPtr FindProgramOfWindow(const wchar_t* className)
{
    const std::string name = linux::FileNameOf(className);
    const linux::CFileDescriptor folder = linux::OpenSessionFolder();
    struct stat status = {};
    if (!folder || ::fstat(folder.Get(), &status) != 0 || !linux::ConnectMessageSocket(name)) {
        SetLastErrorCode(ERROR_INVALID_WINDOW_HANDLE);
        return nullptr;
    }
    ProgramPtr program = FindOwner(ListSockets(name), status);
    if (!program) {
        SetLastErrorCode(ERROR_ACCESS_DENIED);
    }
    return program;
}

DWORD ProcessIdentifierOf(const ProgramPtr& program) { return static_cast<DWORD>(program->m_id); }

std::int64_t StartTimeOf(const ProgramPtr& program)
{
    std::ifstream file(ProcessFolder(program->m_id) + "/stat");
    std::string text;
    std::getline(file, text);
    // After the program's name in brackets, which may hold anything, its state is field 3, the start field 22, counted
    // from the start of the system.
    constexpr int kFieldsBetween = 19;
    const std::size_t name = text.rfind(')');
    std::istringstream fields(name == std::string::npos ? "" : text.substr(name + 1));
    std::string skipped;
    for (int i = 0; i < kFieldsBetween; ++i) {
        fields >> skipped;
    }
    std::int64_t ticks = 0;
    timespec sinceStart = {};
    const long ticksPerSecond = ::sysconf(_SC_CLK_TCK);
    if (!(fields >> ticks) || ticksPerSecond <= 0 || ::clock_gettime(CLOCK_BOOTTIME, &sinceStart) != 0) {
        return -1;
    }
    return std::time(nullptr) - sinceStart.tv_sec + ticks / ticksPerSecond;
}

DWORD WaitForProgramEnd(const ProgramPtr& program, DWORD timeoutMs)
{
    if (!program || !program->m_descriptor) {
        SetLastErrorCode(program ? ERROR_ACCESS_DENIED : ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    const linux::Deadline deadline = linux::DeadlineAfter(timeoutMs);
    pollfd ended = {program->m_descriptor.Get(), POLLIN, 0};
    for (;;) {
        if (!linux::Poll({&ended, 1}, deadline)) {
            return WAIT_FAILED;
        }
        if (ended.revents != 0) {
            return WAIT_OBJECT_0;
        }
        if (deadline && std::chrono::steady_clock::now() >= *deadline) {
            return WAIT_TIMEOUT;
        }
    }
}

CString FindProgram(const wchar_t* name)
{
    std::error_code error;
    std::vector<std::string> folders = linux::FoldersFromEnvironment("PATH", "/usr/local/bin:/usr/bin:/bin");
    folders.insert(folders.begin(), fs::read_symlink("/proc/self/exe", error).parent_path());
    for (const std::string& folder : folders) {
        const std::string path = folder + "/" + EncodeUtf8(name);
        if (!folder.empty() && IsProgram(path)) {
            return DecodeUtf8(path);
        }
    }
    return {};
}

ProgramPtr StartProgram(const CString& path)
{
    const std::string program = linux::NativePath(path);
    std::string argument = program;
    char* const arguments[] = {argument.data(), nullptr};
    const CSpawnSettings settings;
    pid_t id = 0;
    const int error =
        ::posix_spawn(&id, program.c_str(), settings.Actions(), settings.Attributes(), arguments, environ);
    if (error != 0) {
        SetLastErrorCode(linux::ErrorCodeOf(error));
        return nullptr;
    }
    return Open(id);
}

} // namespace platform
