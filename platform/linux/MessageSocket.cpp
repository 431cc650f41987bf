#include "platform/linux/MessageSocket.h"

#include "platform/linux/BriefRetry.h"
#include "platform/linux/SecurityDescriptor.h"
#include "platform/linux/SessionFolder.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace platform::linux {

namespace {

CFileDescriptor MakeSocket()
{
    return CFileDescriptor(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

// A socket that learns who sends, and that is the user's alone once it has a name.
CFileDescriptor MakeReceivingSocket()
{
    CFileDescriptor socket = MakeSocket();
    const int yes = 1;
    const bool made = socket && ::setsockopt(socket.Get(), SOL_SOCKET, SO_PASSCRED, &yes, sizeof(yes)) == 0 &&
                      ::fchmod(socket.Get(), kFilePrivate) == 0;
    return made ? std::move(socket) : CFileDescriptor();
}

// An address below an opened folder: whatever its path leads to meanwhile, that folder is meant.
bool MakeAddress(const CFileDescriptor& folder, const std::string& name, sockaddr_un* address)
{
    const std::string path = "/proc/self/fd/" + std::to_string(folder.Get()) + "/" + name;
    *address = {};
    if (path.size() >= sizeof(address->sun_path)) {
        errno = ENAMETOOLONG;
        return false;
    }
    address->sun_family = AF_UNIX;
    path.copy(address->sun_path, path.size());
    return true;
}

// Calls bind or connect.
template <typename Operation>
bool WithAddress(Operation operation, const CFileDescriptor& socket, const sockaddr_un& address)
{
    return operation(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

bool LookAt(const CFileDescriptor& folder, const std::string& name, struct stat* status)
{
    return ::fstatat(folder.Get(), name.c_str(), status, AT_SYMLINK_NOFOLLOW) == 0;
}

bool Connect(const CFileDescriptor& socket, const CFileDescriptor& folder, const std::string& name,
             const sockaddr_un& address)
{
    struct stat status = {};
    if (!LookAt(folder, name, &status)) {
        return false;
    }
    // A symbolic link would be followed.
    if (!S_ISSOCK(status.st_mode)) {
        errno = ENOTSOCK;
        return false;
    }
    return WithAddress(::connect, socket, address);
}

// As long as it lives, no other process makes or removes a message socket in the folder. Converts to false, with errno
// set, when the folder could not be locked.
class CFolderLock {
public:
    explicit CFolderLock(const CFileDescriptor& folder)
        : m_folder(folder), m_isLocked(RetryBriefly([&] { return ::flock(folder.Get(), LOCK_EX | LOCK_NB) == 0; }))
    {
    }
    ~CFolderLock() { ::flock(m_folder.Get(), LOCK_UN); }
    CFolderLock(const CFolderLock&) = delete;
    CFolderLock& operator=(const CFolderLock&) = delete;

    explicit operator bool() const { return m_isLocked; }

private:
    const CFileDescriptor& m_folder;
    const bool m_isLocked;
};

// Removes the socket of a process that has ended.
bool MakeRoom(const CFileDescriptor& folder, const std::string& name, const sockaddr_un& address)
{
    const CFileDescriptor probe = MakeSocket();
    if (!probe) {
        return false;
    }
    if (Connect(probe, folder, name, address)) {
        errno = EEXIST;
        return false;
    }
    return errno == ENOENT || (errno == ECONNREFUSED && ::unlinkat(folder.Get(), name.c_str(), 0) == 0);
}

// Whether the sender, whom the system names, may send messages: the user or root.
bool IsFromUser(const msghdr& header)
{
    const cmsghdr* const control = CMSG_FIRSTHDR(&header);
    if (control == nullptr || control->cmsg_level != SOL_SOCKET || control->cmsg_type != SCM_CREDENTIALS) {
        return false;
    }
    ucred sender = {};
    std::memcpy(&sender, CMSG_DATA(control), sizeof(sender));
    return sender.uid == ::geteuid() || sender.uid == 0;
}

} // namespace

CMessageSocket::~CMessageSocket()
{
    if (m_name.empty()) {
        return;
    }
    const CFolderLock lock(m_folder);
    struct stat status = {};
    if (lock && LookAt(m_folder, m_name, &status) && status.st_dev == m_device && status.st_ino == m_fileNumber) {
        ::unlinkat(m_folder.Get(), m_name.c_str(), 0);
    }
}

bool CMessageSocket::Bind(const std::string& name)
{
    if (name.empty()) {
        errno = EINVAL;
        return false;
    }
    m_folder = OpenSessionFolder();
    sockaddr_un address = {};
    if (!m_folder || !MakeAddress(m_folder, name, &address)) {
        return false;
    }
    const CFolderLock lock(m_folder);
    if (!lock) {
        return false;
    }
    m_socket = MakeReceivingSocket();
    struct stat status = {};
    if (!m_socket || !MakeRoom(m_folder, name, address) || !WithAddress(::bind, m_socket, address) ||
        !LookAt(m_folder, name, &status)) {
        return false;
    }
    m_name = name;
    m_device = status.st_dev;
    m_fileNumber = status.st_ino;
    return true;
}

std::optional<PostedMessage> CMessageSocket::Receive()
{
    for (;;) {
        PostedMessage message = {};
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(ucred))> control = {};
        iovec data = {&message, sizeof(message)};
        msghdr header = {};
        header.msg_iov = &data;
        header.msg_iovlen = 1;
        header.msg_control = control.data();
        header.msg_controllen = control.size();
        const ssize_t size = ::recvmsg(m_socket.Get(), &header, MSG_DONTWAIT);
        if (size < 0) {
            return std::nullopt;
        }
        if (size == sizeof(message) && (header.msg_flags & MSG_TRUNC) == 0 && IsFromUser(header)) {
            return message;
        }
    }
}

CFileDescriptor ConnectMessageSocket(const std::string& name)
{
    const CFileDescriptor folder = OpenSessionFolder();
    CFileDescriptor socket = MakeSocket();
    sockaddr_un address = {};
    if (!name.empty() && folder && socket && MakeAddress(folder, name, &address) &&
        Connect(socket, folder, name, address)) {
        return socket;
    }
    return CFileDescriptor();
}

bool SendMessageTo(const CFileDescriptor& socket, const PostedMessage& message)
{
    return ::send(socket.Get(), &message, sizeof(message), MSG_DONTWAIT | MSG_NOSIGNAL) == sizeof(message);
}

} // namespace platform::linux
