#include "platform/Settings.h"

#include "platform/linux/FileBytes.h"
#include "platform/linux/RegFile.h"
#include "platform/linux/SettingsFile.h"

#include <cerrno>
#include <fcntl.h>

namespace platform {

namespace {

linux::CFileDescriptor OpenSettingsFile(Hive hive)
{
    for (const std::string& path : linux::SettingsFilePaths(hive)) {
        // Without blocking, for the path may be a FIFO that nobody writes to.
        linux::CFileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
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
    if (!file || !linux::IsRegularFile(file) ||
        linux::ReadBytes(file, linux::kMaxSettingsFileSize + 1, &bytes) != ERROR_SUCCESS ||
        bytes.size() > linux::kMaxSettingsFileSize) {
        bytes.clear();
    }
    return bytes;
}

} // namespace

BOOL QuerySettingsValue(Hive hive, const CString& keyPath, const wchar_t* valueName, SettingsValue* value)
{
    const std::vector<BYTE> bytes = ReadSettingsFile(hive);
    return linux::FindRegValue(bytes, linux::KeyInFile(hive, keyPath), valueName, value) ? TRUE : FALSE;
}

} // namespace platform
