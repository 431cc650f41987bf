#include "testing/process/Peer.h"

#include <stdexcept>
#include <utility>

namespace testing_support {

CPeer::CPeer() : CPeer({AMPORA_TEST_PEER}) {}

CPeer::CPeer(std::vector<std::string> command, EnvironmentChanges environment)
    : m_command(std::move(command)), m_environment(std::move(environment))
{
}

bool CPeer::Do(const std::string& command)
{
    constexpr std::chrono::seconds kAnswerLimit{60};
    if (!m_process) {
        m_process = std::make_unique<CBackgroundProcess>(m_command, m_environment);
    }
    m_process->Write(command + "\n");
    const std::optional<std::string> answer = m_process->ReadLine(kAnswerLimit);
    if (!answer) {
        throw std::runtime_error("no answer to " + command + ": " + m_process->Err());
    }
    return *answer == "1";
}

} // namespace testing_support
