// The other process of a test's session.
#pragma once

#include "platform/linux/FileDescriptor.h"

#include <string>
#include <sys/types.h>

namespace testing_support {

// A process of the program contract_peer, which acts on named objects when told to. Made by the first command and, once
// killed, by the next one. One thread at a time.
class CPeerProcess {
public:
    CPeerProcess() = default;
    ~CPeerProcess() { Kill(); }
    CPeerProcess(const CPeerProcess&) = delete;
    CPeerProcess& operator=(const CPeerProcess&) = delete;

    // Has the process do one command, such as "acquire NAME". False when it could not.
    bool Do(const std::string& command);
    // Kills the process, if there is one, and sees it end.
    void Kill();

private:
    void Start();

    pid_t m_process = -1;
    platform::linux::CFileDescriptor m_commands;
    platform::linux::CFileDescriptor m_answers;
};

} // namespace testing_support
