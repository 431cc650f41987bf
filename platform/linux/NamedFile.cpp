#include "platform/linux/NamedFile.h"

#include "platform/LastError.h"
#include "platform/linux/BriefRetry.h"
#include "platform/linux/Environment.h"
#include "platform/linux/ErrorCode.h"
#include "platform/linux/SecurityDescriptor.h"
#include "platform/linux/SessionFolder.h"
#include "platform/Text.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace platform::linux {

namespace {

constexpr std::wstring_view kGlobalPrefix = L"Global\\";

// How often a file that somebody takes away between two looks is looked for again.
constexpr int kOpenAttempts = 100;

CFileDescriptor OpenLockFolder()
{
    const std::string path = FolderFromEnvironment("AMPORA_LOCK_DIR", "/run/lock");
    return CFileDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

// Makes the file; an existing one is left alone and is a failure with EEXIST.
CFileDescriptor MakeFile(int folder, const char* name, NamedKind kind)
{
    if (kind == NamedKind::kMutex) {
        return CFileDescriptor(
            ::openat(folder, name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kFilePrivate));
    }
    if (::mkfifoat(folder, name, kFilePrivate) != 0) {
        return CFileDescriptor();
    }
    return CFileDescriptor(::openat(folder, name, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

bool IsOfKind(const CFileDescriptor& file, NamedKind kind)
{
    struct stat status = {};
    if (::fstat(file.Get(), &status) != 0) {
        return false;
    }
    // A second name would be another file's, which must not be written to.
    return kind == NamedKind::kMutex ? S_ISREG(status.st_mode) && status.st_nlink == 1 : S_ISFIFO(status.st_mode);
}

CFileDescriptor OpenOrMakeFile(int folder, const char* name, NamedKind kind, bool forAll)
{
    for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
        // First without making it: in a folder where everybody may write, the system refuses to "make" another user's
        // file even when it exists (fs.protected_regular).
        CFileDescriptor file(::openat(folder, name, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (file || errno != ENOENT) {
            return file;
        }
        file = MakeFile(folder, name, kind);
        if (file) {
            if (forAll && ::fchmod(file.Get(), kFileForAll) != 0) {
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

bool LockFirstByte(const CFileDescriptor& file, short type)
{
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_len = 1;
    return ::fcntl(file.Get(), F_OFD_SETLK, &lock) == 0;
}

} // namespace

std::string FileNameOf(std::wstring_view name)
{
    std::string fileName = EncodeUtf8(name);
    const bool isUsable = fileName != "." && fileName != ".." && fileName.find_first_of("/\\") == std::string::npos;
    return isUsable ? std::move(fileName) : std::string();
}

CFileDescriptor OpenNamedFile(std::wstring_view name, NamedKind kind, const CSecurityDescriptor* security)
{
    const bool global = name.starts_with(kGlobalPrefix);
    if (global) {
        name.remove_prefix(kGlobalPrefix.size());
    }
    const std::string fileName = FileNameOf(name);
    if (fileName.empty()) {
        SetLastErrorCode(ERROR_PATH_NOT_FOUND);
        return CFileDescriptor();
    }
    const CFileDescriptor folder = global ? OpenLockFolder() : OpenSessionFolder();
    if (!folder) {
        SetLastErrorCode(errno == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorCodeOf(errno));
        return CFileDescriptor();
    }
    CFileDescriptor file = OpenOrMakeFile(folder.Get(), fileName.c_str(), kind, IsOpenToAll(security));
    if (!file) {
        // A symbolic link, a folder or a socket of this name.
        const bool otherKind = errno == ELOOP || errno == EISDIR || errno == ENXIO;
        SetLastErrorCode(otherKind ? ERROR_INVALID_HANDLE : ErrorCodeOf(errno));
        return CFileDescriptor();
    }
    if (!IsOfKind(file, kind)) {
        SetLastErrorCode(ERROR_INVALID_HANDLE);
        return CFileDescriptor();
    }
    return file;
}

Existence ClaimExistence(const CFileDescriptor& file)
{
    if (LockFirstByte(file, F_WRLCK)) {
        return Existence::kNew;
    }
    if (errno != EAGAIN && errno != EACCES) {
        return Existence::kUnknown;
    }
    // Not as long as it takes: another user, too, may lock a file that is open to all.
    const bool isShared = RetryBriefly([&file] { return LockFirstByte(file, F_RDLCK); });
    return isShared ? Existence::kOld : Existence::kUnknown;
}

bool ShareExistence(const CFileDescriptor& file) { return LockFirstByte(file, F_RDLCK); }

void DropExistence(const CFileDescriptor& file) { LockFirstByte(file, F_UNLCK); }

} // namespace platform::linux
