// The socket that a window is to other processes.
#pragma once

#include "platform/linux/FileDescriptor.h"

#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>

namespace platform::linux {

// A posted message: one datagram of this size.
struct PostedMessage {
    std::uint64_t message;
    std::uint64_t wParam;
    std::int64_t lParam;
};
static_assert(sizeof(PostedMessage) == 24);

// A datagram socket with a name in the session folder, where messages arrive. One thread at a time.
class CMessageSocket {
public:
    CMessageSocket() = default;
    // Takes the name away, unless another socket has it meanwhile.
    ~CMessageSocket();
    CMessageSocket(const CMessageSocket&) = delete;
    CMessageSocket& operator=(const CMessageSocket&) = delete;

    // Makes the socket; once. One that was left behind by a process that has ended is replaced; nothing else is. False,
    // with errno set, on failure: EEXIST when a living process has the name, ENOTSOCK when it is not a socket's, EACCES
    // when the session folder is not the user's alone, ETIMEDOUT when another process keeps it locked, EINVAL when it
    // cannot be a name.
    bool Bind(const std::string& name);

    // Readable while messages are waiting.
    int Descriptor() const { return m_socket.Get(); }
    // The next message that is waiting, none when there is none. What is not a message, or comes from another user than
    // this one and root, is dropped. Does not wait.
    std::optional<PostedMessage> Receive();

private:
    CFileDescriptor m_folder;
    CFileDescriptor m_socket;
    // Which file the name is as long as it is this socket's; the name is empty until then.
    std::string m_name;
    dev_t m_device = 0;
    ino_t m_fileNumber = 0;
};

// A socket for SendMessageTo, connected to the message socket of this name. None, with errno set, when there is none or
// nobody receives there. Any thread.
CFileDescriptor ConnectMessageSocket(const std::string& name);

// Sends a message, without waiting. False, with errno set, on failure: ECONNREFUSED or ENOTCONN when nobody receives
// there any more, EAGAIN when too many messages are waiting. Any thread.
bool SendMessageTo(const CFileDescriptor& socket, const PostedMessage& message);

} // namespace platform::linux
