#include "platform/SettingsWriter.h"

#include "platform/LastError.h"
#include "platform/linux/ErrorCode.h"
#include "platform/linux/FileReplacement.h"
#include "platform/linux/RegEdit.h"
#include "platform/linux/RegFile.h"
#include "platform/linux/SettingsFile.h"
#include "platform/Text.h"

#include <cerrno>
#include <functional>
#include <sys/stat.h>

namespace platform {

namespace {

// Source: Windows SDK, winerror.h.
constexpr DWORD kFileTooLarge = 223;

// The file of a hive: the one that is read, else the one to make. Empty when the environment names no folder for it.
std::string PathOf(Hive hive)
{
    const std::vector<std::string> paths = linux::SettingsFilePaths(hive);
    for (const std::string& path : paths) {
        struct stat status = {};
        if (::stat(path.c_str(), &status) == 0 || (errno != ENOENT && errno != ENOTDIR)) {
            return path;
        }
    }
    // The last folder is the one that no session puts in front of the others for its own ends.
    return paths.empty() ? std::string() : paths.back();
}

std::string FolderOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

DWORD CodeOf(int error)
{
    switch (error) {
    case ETIMEDOUT:
        return ERROR_SHARING_VIOLATION;
    case EINVAL: // no regular file
        return ERROR_ACCESS_DENIED;
    case EFBIG:
        return kFileTooLarge;
    default:
        return linux::ErrorCodeOf(error);
    }
}

using Edit = std::function<DWORD(const std::vector<BYTE>& old, std::vector<BYTE>* changed)>;

// Replaces a file by what edit makes of it, unless that fails. The error code.
DWORD ChangeFile(const std::string& path, const Edit& edit)
{
    linux::CFileReplacement file;
    std::vector<BYTE> old;
    int error = file.Begin(path);
    if (error == 0) {
        error = file.Read(linux::kMaxSettingsFileSize, &old);
    }
    if (error != 0) {
        return CodeOf(error);
    }
    std::vector<BYTE> changed;
    const DWORD code = edit(old, &changed);
    return code == ERROR_SUCCESS ? CodeOf(file.Replace(changed)) : code;
}

BOOL Succeed(DWORD code)
{
    SetLastErrorCode(code);
    return code == ERROR_SUCCESS ? TRUE : FALSE;
}

} // namespace

BOOL StoreSettingsValue(Hive hive, const CString& keyPath, const wchar_t* valueName, const SettingsValue& value)
{
    const std::string path = PathOf(hive);
    // The user's folders are private by custom.
    const int error = path.empty() ? ENOENT : linux::MakeFolders(FolderOf(path), hive == Hive::kPerUser ? 0700 : 0755);
    if (error != 0) {
        return Succeed(CodeOf(error));
    }
    const CString key = linux::KeyInFile(hive, keyPath);
    return Succeed(ChangeFile(path, [&](const std::vector<BYTE>& old, std::vector<BYTE>* changed) -> DWORD {
        std::optional<std::vector<BYTE>> bytes = linux::StoreRegValue(old, key, valueName, value);
        if (!bytes || bytes->size() > linux::kMaxSettingsFileSize) {
            return ERROR_INVALID_PARAMETER;
        }
        *changed = std::move(*bytes);
        return ERROR_SUCCESS;
    }));
}

BOOL RemoveSettingsValue(Hive hive, const CString& keyPath, const wchar_t* valueName)
{
    const CString key = linux::KeyInFile(hive, keyPath);
    return Succeed(ChangeFile(PathOf(hive), [&](const std::vector<BYTE>& old, std::vector<BYTE>* changed) -> DWORD {
        SettingsValue value;
        if (!linux::FindRegValue(old, key, valueName, &value)) {
            return ERROR_FILE_NOT_FOUND;
        }
        *changed = linux::RemoveRegValue(old, key, valueName);
        return ERROR_SUCCESS;
    }));
}

CString SettingsPlace(Hive hive, const CString& /*keyPath*/) { return DecodeUtf8(PathOf(hive)); }

} // namespace platform
