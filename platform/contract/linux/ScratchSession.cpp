#include "platform/contract/linux/ScratchSession.h"

#include <cstdlib>

namespace testing_support {

CScratchSession::CScratchSession()
{
    std::filesystem::create_directory(LockFolder());
    std::filesystem::create_directory(RuntimeFolder());
    std::filesystem::create_directories(UserSettings().parent_path());
    std::filesystem::create_directories(MachineSettings().parent_path());
    SetVariable("AMPORA_COMMON_APPDATA", DataFolder().c_str());
    SetVariable("AMPORA_LOCK_DIR", LockFolder().c_str());
    SetVariable("XDG_RUNTIME_DIR", RuntimeFolder().c_str());
    SetVariable("XDG_CONFIG_HOME", (Folder() / "user").c_str());
    SetVariable("XDG_CONFIG_DIRS", (Folder() / "machine").c_str());
}

CScratchSession::~CScratchSession()
{
    for (const auto& [name, value] : m_before) {
        value ? ::setenv(name.c_str(), value->c_str(), 1) : ::unsetenv(name.c_str());
    }
}

void CScratchSession::SetVariable(const std::string& name, const char* value)
{
    const char* const before = std::getenv(name.c_str());
    m_before.try_emplace(name, before == nullptr ? std::nullopt : std::optional<std::string>(before));
    value == nullptr ? ::unsetenv(name.c_str()) : ::setenv(name.c_str(), value, 1);
}

} // namespace testing_support
