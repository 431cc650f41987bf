#include "platform/Settings.h"

#include "platform/linux/Environment.h"
#include "platform/linux/FileBytes.h"
#include "platform/linux/RegFile.h"

#include <cerrno>
#include <fcntl.h>

namespace platform {

namespace {

// In bytes. A longer file cannot be one of settings and counts as missing.
constexpr std::size_t kMaxFileSize = 16U << 20;

constexpr char kFileBelowFolder[] = "/AmporaSrv/settings.reg";

// Where a hive's file may be; the first one that is there counts.
std::vector<std::string> FoldersOf(Hive hive)
{
    if (hive == Hive::kMachine) {
        return linux::FoldersFromEnvironment("XDG_CONFIG_DIRS", "/etc/xdg");
    }
    const std::string home = linux::FolderFromEnvironment("HOME", {});
    return {linux::FolderFromEnvironment("XDG_CONFIG_HOME", home.empty() ? home : home + "/.config")};
}

linux::CFileDescriptor OpenSettingsFile(Hive hive)
{
    for (const std::string& folder : FoldersOf(hive)) {
        if (folder.empty()) {
            continue;
        }
        // Without blocking, for the path may be a FIFO that nobody writes to.
        linux::CFileDescriptor file(::open((folder + kFileBelowFolder).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        // A file that exists but cannot be opened counts as found.
        if (file || (errno != ENOENT && errno != ENOTDIR)) {
            return file;
        }
    }
    return linux::CFileDescriptor();
}

// The whole file. Empty when there is none, it cannot be read or is too long.
std::vector<BYTE> ReadSettingsFile(Hive hive)
{
    std::vector<BYTE> bytes;
    const linux::CFileDescriptor file = OpenSettingsFile(hive);
    if (!file || !linux::IsRegularFile(file) || linux::ReadBytes(file, kMaxFileSize + 1, &bytes) != ERROR_SUCCESS ||
        bytes.size() > kMaxFileSize) {
        bytes.clear();
    }
    return bytes;
}

} // namespace

BOOL QuerySettingsValue(Hive hive, const CString& keyPath, const wchar_t* valueName, SettingsValue* value)
{
    const std::vector<BYTE> bytes = ReadSettingsFile(hive);
    const CString root = hive == Hive::kPerUser ? L"HKEY_CURRENT_USER\\" : L"HKEY_LOCAL_MACHINE\\";
    return linux::FindRegValue(bytes, root + keyPath, valueName, value) ? TRUE : FALSE;
}

} // namespace platform
