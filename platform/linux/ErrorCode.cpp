#include "platform/linux/ErrorCode.h"

#include "platform/LastError.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace platform::linux {

namespace {

// Codes that only this table uses. Source: Windows SDK, winerror.h.
constexpr DWORD kTooManyOpenFiles = 4;
constexpr DWORD kWriteProtected = 19;
constexpr DWORD kGeneralFailure = 31;
constexpr DWORD kNameTooLong = 206;
constexpr DWORD kNoSystemResources = 1450;
constexpr DWORD kTimedOut = 1460;

struct Translation {
    int error;
    DWORD code;
};

constexpr Translation kTranslations[] = {
    {0, ERROR_SUCCESS},
    {ENOENT, ERROR_FILE_NOT_FOUND},
    {ENOTDIR, ERROR_PATH_NOT_FOUND},
    {EMFILE, kTooManyOpenFiles},
    {ENFILE, kTooManyOpenFiles},
    {EACCES, ERROR_ACCESS_DENIED},
    {EPERM, ERROR_ACCESS_DENIED},
    {EISDIR, ERROR_ACCESS_DENIED},
    {ELOOP, ERROR_ACCESS_DENIED}, // a symbolic link where none is followed
    {ENXIO, ERROR_ACCESS_DENIED}, // a socket, or a queue without a reader, where a file is expected
    {EBADF, ERROR_INVALID_HANDLE},
    {ENOMEM, ERROR_OUTOFMEMORY},
    {EROFS, kWriteProtected},
    {EBUSY, ERROR_SHARING_VIOLATION},
    {ETXTBSY, ERROR_SHARING_VIOLATION},
    {EINVAL, ERROR_INVALID_PARAMETER},
    {ENOSPC, ERROR_DISK_FULL},
    {EDQUOT, ERROR_DISK_FULL},
    {EEXIST, ERROR_ALREADY_EXISTS},
    {ENAMETOOLONG, kNameTooLong},
    {EAGAIN, kNoSystemResources}, // no thread, no lock: a limit of the system or the user
    {ENOLCK, kNoSystemResources},
    {ETIMEDOUT, kTimedOut},
};

} // namespace

DWORD ErrorCodeOf(int error)
{
    const auto* const known = std::ranges::find(kTranslations, error, &Translation::error);
    return known != std::end(kTranslations) ? known->code : kGeneralFailure;
}

void SetLastErrorFrom(int error) { SetLastErrorCode(ErrorCodeOf(error)); }

} // namespace platform::linux
