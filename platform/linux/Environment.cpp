#include "platform/linux/Environment.h"

#include <cstdlib>

namespace platform::linux {

std::string FolderFromEnvironment(const char* name, const std::string& fallback)
{
    const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nothing changes the environment
    if (value == nullptr || value[0] == '\0') {
        return fallback;
    }
    std::string path = value;
    if (path.front() != '/') {
        return {};
    }
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

} // namespace platform::linux
