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

std::string LockFolderPath() { return FolderFromEnvironment("AMPORA_LOCK_DIR", "/run/lock"); }

CFileDescriptor OpenLockFolder()
{
    return CFileDescriptor(::open(LockFolderPath().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

// Takes the prefix off the name. Whether it was there.
bool TakeGlobalPrefix(std::wstring_view& name)
{
    const bool global = name.starts_with(kGlobalPrefix);
    name.remove_prefix(global ? kGlobalPrefix.size() : 0);
    return global;
}

CFileDescriptor OpenFile(int folder, const char* name)
{
    return CFileDescriptor(::openat(folder, name, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
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
    return OpenFile(folder, name);
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
        CFileDescriptor file = OpenFile(folder, name);
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

struct flock FirstByte(short type)
{
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_len = 1;
    return lock;
}

bool LockFirstByte(const CFileDescriptor& file, short type)
{
    struct flock lock = FirstByte(type);
    return ::fcntl(file.Get(), F_OFD_SETLK, &lock) == 0;
}

// Waits for the process that is making the object, but only briefly: any user may lock a file that is open to all.
Existence ShareWithOthers(const CFileDescriptor& file)
{
    const bool isShared = RetryBriefly([&file] { return LockFirstByte(file, F_RDLCK); });
    return isShared ? Existence::kOld : Existence::kUnknown;
}

// Opens the file of a named object, by its folder and its name there, and looks at what it is.
template <class Open>
CFileDescriptor OpenIn(std::wstring_view name, NamedKind kind, Open open)
{
    const bool global = TakeGlobalPrefix(name);
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
    CFileDescriptor file = open(folder.Get(), fileName.c_str());
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

} // namespace

std::string FileNameOf(std::wstring_view name)
{
    std::string fileName = EncodeUtf8(name);
    const bool isUsable = fileName != "." && fileName != ".." && fileName.find_first_of("/\\") == std::string::npos;
    return isUsable ? std::move(fileName) : std::string();
}

std::string NamedFilePath(std::wstring_view name)
{
    const std::string folder = TakeGlobalPrefix(name) ? LockFolderPath() : SessionFolderPath();
    return folder.empty() ? folder : folder + "/" + FileNameOf(name);
}

CFileDescriptor OpenNamedFile(std::wstring_view name, NamedKind kind, const CSecurityDescriptor* security)
{
    const bool forAll = IsOpenToAll(security);
    return OpenIn(name, kind, [kind, forAll](int folder, const char* fileName) {
        return OpenOrMakeFile(folder, fileName, kind, forAll);
    });
}

CFileDescriptor OpenExistingFile(std::wstring_view name, NamedKind kind) { return OpenIn(name, kind, OpenFile); }

Existence ClaimExistence(const CFileDescriptor& file)
{
    if (LockFirstByte(file, F_WRLCK)) {
        return Existence::kNew;
    }
    if (errno != EAGAIN && errno != EACCES) {
        return Existence::kUnknown;
    }
    return ShareWithOthers(file);
}

Existence JoinExistence(const CFileDescriptor& file)
{
    struct flock others = FirstByte(F_WRLCK);
    if (::fcntl(file.Get(), F_OFD_GETLK, &others) != 0) {
        return Existence::kUnknown;
    }
    if (others.l_type == F_UNLCK) {
        errno = ENOENT;
        return Existence::kUnknown;
    }
    return ShareWithOthers(file);
}

bool ShareExistence(const CFileDescriptor& file) { return LockFirstByte(file, F_RDLCK); }

void DropExistence(const CFileDescriptor& file) { LockFirstByte(file, F_UNLCK); }

} // namespace platform::linux
