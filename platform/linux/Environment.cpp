#include "platform/linux/Environment.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

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
    const std::string list = ValueOf(name, fallback);
    for (std::string_view rest = list; !rest.empty();) {
        const std::string_view folder = rest.substr(0, rest.find(':'));
        folders.push_back(AbsolutePath(std::string(folder)));
        rest.remove_prefix(std::min(folder.size() + 1, rest.size()));
    }
    return folders;
}

} // namespace platform::linux
