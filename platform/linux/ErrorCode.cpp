#include "platform/linux/ErrorCode.h"

#include "platform/LastError.h"

#include <cerrno>

namespace platform::linux {

namespace {

// Codes that only this table uses. Source: Windows SDK, winerror.h.
constexpr DWORD kTooManyOpenFiles = 4;
constexpr DWORD kWriteProtected = 19;
constexpr DWORD kGeneralFailure = 31;
constexpr DWORD kNameTooLong = 206;
constexpr DWORD kNoSystemResources = 1450;

} // namespace

DWORD ErrorCodeOf(int error)
{
    switch (error) {
    case 0:
        return ERROR_SUCCESS;
    case ENOENT:
        return ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
        return ERROR_PATH_NOT_FOUND;
    case EMFILE:
    case ENFILE:
        return kTooManyOpenFiles;
    case EACCES:
    case EPERM:
    case EISDIR:
    case ELOOP: // a symbolic link where none is followed
    case ENXIO: // a socket, or a queue without a reader, where a file is expected
        return ERROR_ACCESS_DENIED;
    case EBADF:
        return ERROR_INVALID_HANDLE;
    case ENOMEM:
        return ERROR_OUTOFMEMORY;
    case EROFS:
        return kWriteProtected;
    case EBUSY:
    case ETXTBSY:
        return ERROR_SHARING_VIOLATION;
    case EINVAL:
        return ERROR_INVALID_PARAMETER;
    case ENOSPC:
    case EDQUOT:
        return ERROR_DISK_FULL;
    case EEXIST:
        return ERROR_ALREADY_EXISTS;
    case ENAMETOOLONG:
        return kNameTooLong;
    case EAGAIN: // no thread, no lock: a limit of the system or the user
    case ENOLCK:
        return kNoSystemResources;
    default:
        return kGeneralFailure;
    }
}

void SetLastErrorFrom(int error) { SetLastErrorCode(ErrorCodeOf(error)); }

} // namespace platform::linux
