#include "platform/Files.h"

#include "platform/Clock.h"
#include "platform/LastError.h"
#include "platform/linux/Environment.h"
#include "platform/linux/ErrorCode.h"
#include "platform/linux/FileBytes.h"
#include "platform/linux/NativePath.h"
#include "platform/linux/SecurityDescriptor.h"
#include "platform/linux/WriteSignals.h"
#include "platform/portable/FileTime.h"
#include "platform/Text.h"

#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sys/file.h>
#include <sys/stat.h>

namespace platform {

const wchar_t* const kPathSeparator = L"/";

class COutputFile {
public:
    linux::CFileDescriptor m_descriptor;
};

namespace {

using linux::CFileDescriptor;
using linux::NativePath;

// How often a file that somebody takes away between two looks is looked for again.
constexpr int kOpenAttempts = 100;

constexpr int kOpenFlags = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

// Opens for writing, made when missing, an existing file as it is. None, with errno set, on failure.
CFileDescriptor OpenOrMakeFile(const std::string& path, bool forAll)
{
    for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
        CFileDescriptor file(::open(path.c_str(), O_WRONLY | kOpenFlags));
        if (file || errno != ENOENT) {
            return file;
        }
        file = CFileDescriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | kOpenFlags, linux::kFilePrivate));
        if (file) {
            // A file system without rights is no obstacle.
            if (forAll && ::fchmod(file.Get(), linux::kFileForAll) != 0 && errno != EPERM) {
                return CFileDescriptor();
            }
            return file;
        }
        if (errno != EEXIST) {
            return file;
        }
    }
    return CFileDescriptor();
}

// Refuses everything but a regular file, one with more hard links than these, and one that others use. The error code.
DWORD LockRegularFile(const CFileDescriptor& file, nlink_t maxLinks, int operation)
{
    struct stat status = {};
    if (::fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_nlink > maxLinks) {
        return ERROR_ACCESS_DENIED;
    }
    if (::flock(file.Get(), operation | LOCK_NB) != 0) {
        return errno == EWOULDBLOCK ? ERROR_SHARING_VIOLATION : linux::ErrorCodeOf(errno);
    }
    return ERROR_SUCCESS;
}

bool IsFolder(const std::string& path)
{
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// The code for a file or folder that could not be made: what is missing then is the folder around it.
DWORD CodeOfMaking(int error) { return error == ENOENT ? ERROR_PATH_NOT_FOUND : linux::ErrorCodeOf(error); }

} // namespace

BOOL GetCommonAppDataFolder(CString* folder)
{
    folder->clear();
    const std::string path = linux::FolderFromEnvironment("AMPORA_COMMON_APPDATA", "/var/lib");
    if (!IsFolder(path) && ::mkdir(path.c_str(), 0755) != 0 && !IsFolder(path)) {
        return FALSE;
    }
    *folder = DecodeUtf8(path);
    return TRUE;
}

BOOL PathExists(const CString& path)
{
    struct stat status = {};
    return ::lstat(NativePath(path).c_str(), &status) == 0;
}

BOOL QueryLastWrite(const CString& path, FILETIME* lastWrite)
{
    struct stat status = {};
    if (::lstat(NativePath(path).c_str(), &status) != 0) {
        const bool isFolderMissing = errno == ENOENT && !PathExists(linux::FolderOf(path));
        SetLastErrorCode(isFolderMissing ? ERROR_PATH_NOT_FOUND : linux::ErrorCodeOf(errno));
        return FALSE;
    }
    *lastWrite = FileTimeOf(static_cast<std::uint64_t>(
        portable::kUnixEpochCount + status.st_mtim.tv_sec * portable::kUnitsPerSecond + status.st_mtim.tv_nsec / 100));
    return TRUE;
}

BOOL MakeFolder(const CString& path, const CSecurityDescriptor* security)
{
    const std::string nativePath = NativePath(path);
    if (::mkdir(nativePath.c_str(), linux::kFolderPrivate) != 0) {
        SetLastErrorCode(CodeOfMaking(errno));
        return FALSE;
    }
    if (linux::IsOpenToAll(security)) {
        const CFileDescriptor folder(::open(nativePath.c_str(), O_RDONLY | O_DIRECTORY | kOpenFlags));
        if (!folder || (::fchmod(folder.Get(), linux::kFolderForAll) != 0 && errno != EPERM)) {
            linux::SetLastErrorFrom(errno);
            return FALSE;
        }
    }
    return TRUE;
}

OutputFilePtr OpenForReplace(const CString& path, const CSecurityDescriptor* security)
{
    auto output = std::make_shared<COutputFile>(); // before anything is changed, since memory may run out here
    CFileDescriptor& file = output->m_descriptor;
    file = OpenOrMakeFile(NativePath(path), linux::IsOpenToAll(security));
    if (!file) {
        SetLastErrorCode(CodeOfMaking(errno));
        return nullptr;
    }
    // Another hard link may be a file that must not be overwritten.
    DWORD code = LockRegularFile(file, 1, LOCK_EX);
    // Only with the lock, for a reader may be in the middle of the old content.
    if (code == ERROR_SUCCESS && ::ftruncate(file.Get(), 0) != 0) {
        code = linux::ErrorCodeOf(errno);
    }
    if (code != ERROR_SUCCESS) {
        SetLastErrorCode(code);
        return nullptr;
    }
    return output;
}

void WriteFileBytes(const OutputFilePtr& file, const void* bytes, std::size_t size)
{
    linux::CWriteSignals signals;
    ssize_t written = 0;
    do {
        written = ::write(file->m_descriptor.Get(), bytes, size);
    } while (written < 0 && errno == EINTR);
    if (written < 0) {
        const int error = errno;
        signals.Note(error);
        throw CFileException(linux::ErrorCodeOf(error) == ERROR_DISK_FULL ? ERROR_DISK_FULL : ERROR_WRITE_FAULT);
    }
    // A regular file takes less than it is given only when there is no room for the rest.
    if (static_cast<std::size_t>(written) != size) {
        throw CFileException(ERROR_DISK_FULL);
    }
}

DWORD ReadWholeFile(const CString& path, std::size_t maxBytes, std::vector<BYTE>* bytes)
{
    bytes->clear();
    const CFileDescriptor file(::open(NativePath(path).c_str(), O_RDONLY | kOpenFlags));
    if (!file) {
        const int error = errno;
        return error == ENOENT && !PathExists(linux::FolderOf(path)) ? ERROR_PATH_NOT_FOUND : linux::ErrorCodeOf(error);
    }
    DWORD code = LockRegularFile(file, std::numeric_limits<nlink_t>::max(), LOCK_SH);
    if (code == ERROR_SUCCESS) {
        code = linux::ReadBytes(file, maxBytes, bytes);
    }
    if (code != ERROR_SUCCESS) {
        bytes->clear();
    }
    return code;
}

} // namespace platform
