#include "platform/Settings.h"

#include "platform/linux/Environment.h"
#include "platform/linux/FileBytes.h"
#include "platform/linux/RegFile.h"

#include <fcntl.h>

namespace platform {

namespace {

// In bytes. A longer file cannot be one of settings and counts as missing.
constexpr std::size_t kMaxFileSize = 16U << 20;

constexpr char kFileBelowFolder[] = "/AmporaSrv/settings.reg";

// The first folder in $XDG_CONFIG_DIRS, which separates them by colons.
std::string MachineFolder()
{
    const std::string folders = linux::FolderFromEnvironment("XDG_CONFIG_DIRS", "/etc/xdg");
    return folders.substr(0, folders.find(':'));
}

std::string UserFolder()
{
    const std::string home = linux::FolderFromEnvironment("HOME", {});
    return linux::FolderFromEnvironment("XDG_CONFIG_HOME", home.empty() ? home : home + "/.config");
}

// The whole file. Empty when there is none, it cannot be read or is too long.
std::vector<BYTE> ReadSettingsFile(const std::string& folder)
{
    std::vector<BYTE> bytes;
    if (folder.empty()) {
        return bytes;
    }
    // Without blocking, for the path may be a FIFO that nobody writes to.
    const linux::CFileDescriptor file(::open((folder + kFileBelowFolder).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file || !linux::IsRegularFile(file) || linux::ReadBytes(file, kMaxFileSize + 1, &bytes) != ERROR_SUCCESS ||
        bytes.size() > kMaxFileSize) {
        bytes.clear();
    }
    return bytes;
}

} // namespace

BOOL QuerySettingsValue(Hive hive, const CString& keyPath, const wchar_t* valueName, SettingsValue* value)
{
    const bool perUser = hive == Hive::kPerUser;
    const std::vector<BYTE> bytes = ReadSettingsFile(perUser ? UserFolder() : MachineFolder());
    const CString root = perUser ? L"HKEY_CURRENT_USER\\" : L"HKEY_LOCAL_MACHINE\\";
    return linux::FindRegValue(bytes, root + keyPath, valueName, value) ? TRUE : FALSE;
}

} // namespace platform
