#include "platform/linux/SettingsFile.h"

#include "platform/linux/Environment.h"

namespace platform::linux {

namespace {

std::vector<std::string> FoldersOf(Hive hive)
{
    if (hive == Hive::kMachine) {
        return FoldersFromEnvironment("XDG_CONFIG_DIRS", "/etc/xdg");
    }
    const std::string home = FolderFromEnvironment("HOME", {});
    return {FolderFromEnvironment("XDG_CONFIG_HOME", home.empty() ? home : home + "/.config")};
}

} // namespace

std::vector<std::string> SettingsFilePaths(Hive hive)
{
    std::vector<std::string> paths;
    for (const std::string& folder : FoldersOf(hive)) {
        if (!folder.empty()) {
            paths.push_back(folder + "/AmporaSrv/settings.reg");
        }
    }
    return paths;
}

CString KeyInFile(Hive hive, const CString& keyPath)
{
    return (hive == Hive::kPerUser ? L"HKEY_CURRENT_USER\\" : L"HKEY_LOCAL_MACHINE\\") + keyPath;
}

} // namespace platform::linux
