#include "platform/linux/Environment.h"

#include <cstdlib>
#include <sstream>

namespace platform::linux {

namespace {

std::string ValueOf(const char* name, const std::string& fallback)
{
    const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nothing changes the environment
    return value == nullptr || value[0] == '\0' ? fallback : value;
}

// Without a separator at its end; empty when it is not absolute.
std::string AbsolutePath(std::string path)
{
    if (!path.starts_with('/')) {
        return {};
    }
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

} // namespace

std::string FolderFromEnvironment(const char* name, const std::string& fallback)
{
    return AbsolutePath(ValueOf(name, fallback));
}

std::vector<std::string> FoldersFromEnvironment(const char* name, const std::string& fallback)
{
    std::vector<std::string> folders;
    std::istringstream list(ValueOf(name, fallback));
    for (std::string folder; std::getline(list, folder, ':');) {
        folders.push_back(AbsolutePath(folder));
    }
    return folders;
}

} // namespace platform::linux
