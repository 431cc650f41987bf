#include "platform/linux/SessionFolder.h"

#include "platform/linux/Environment.h"
#include "platform/linux/SecurityDescriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace platform::linux {

std::string SessionFolderPath()
{
    const std::string runtime = FolderFromEnvironment("XDG_RUNTIME_DIR", {});
    return runtime.empty() ? "/tmp/AmporaSrv-" + std::to_string(geteuid()) : runtime + "/AmporaSrv";
}

CFileDescriptor OpenSessionFolder()
{
    const std::string path = SessionFolderPath();
    if (::mkdir(path.c_str(), kFolderPrivate) != 0 && errno != EEXIST) {
        return CFileDescriptor();
    }
    CFileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status = {};
    if (!folder || ::fstat(folder.Get(), &status) != 0) {
        return CFileDescriptor();
    }
    // In a folder of somebody else, or open to somebody else, the session's objects could be theirs.
    if (status.st_uid != geteuid() || (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        errno = EACCES;
        return CFileDescriptor();
    }
    return folder;
}

} // namespace platform::linux
