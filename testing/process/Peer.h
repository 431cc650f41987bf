// The other process of a test's session.
#pragma once

#include "testing/process/Process.h"

namespace testing_support {

// A process of the program test_peer (TestPeer.cpp), which acts on named objects, windows and files when told to.
// Started by the first command and, once killed, by the next one; killed when this object goes. One thread at a time.
class CPeer {
public:
    // The program that was built with the test.
    CPeer();
    // command, environment: as a CBackgroundProcess takes them.
    explicit CPeer(std::vector<std::string> command, EnvironmentChanges environment = {});

    // Has the process do one command, such as "acquire NAME". False when it could not. Throws std::runtime_error when
    // it does not answer, std::system_error when it cannot be started.
    bool Do(const std::string& command);
    // Kills the process, if there is one, with whatever it holds.
    void Kill() { m_process.reset(); }

private:
    std::vector<std::string> m_command;
    EnvironmentChanges m_environment;
    std::unique_ptr<CBackgroundProcess> m_process;
};

} // namespace testing_support
