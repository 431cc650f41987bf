#include "platform/linux/FileReplacement.h"

#include "platform/linux/BriefRetry.h"
#include "platform/linux/FileBytes.h"
#include "platform/linux/WriteSignals.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>

namespace platform::linux {

namespace {

// The file that a path leads to over links. Empty, with errno set, when a link points to nothing.
std::string TargetOf(const std::string& path)
{
    struct stat status = {};
    if (::lstat(path.c_str(), &status) != 0 && errno == ENOENT) {
        return path;
    }
    std::error_code error;
    const std::filesystem::path target = std::filesystem::canonical(path, error);
    errno = error.value();
    return error ? std::string() : target.string();
}

// 0 or errno.
int WriteAll(int file, std::span<const BYTE> bytes)
{
    CWriteSignals signals;
    while (!bytes.empty()) {
        const ssize_t count = ::write(file, bytes.data(), bytes.size());
        if (count > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        } else if (count == 0) {
            return ENOSPC;
        } else if (errno != EINTR) {
            signals.Note(errno);
            return errno;
        }
    }
    return 0;
}

// Gives a file owner, group and mode of another one as far as the system allows. False, with errno set, on failure.
bool TakeOver(int file, const struct stat& old)
{
    // Whoever may not give files away keeps the group at least, where it is one of his own. The mode comes last, for a
    // change of the owner may change it.
    if (::fchown(file, old.st_uid, old.st_gid) != 0 && ::fchown(file, static_cast<uid_t>(-1), old.st_gid) != 0 &&
        errno != EPERM) {
        return false;
    }
    return ::fchmod(file, old.st_mode & 0777) == 0 || errno == EPERM;
}

} // namespace

int MakeFolders(const std::string& path, unsigned mode)
{
    for (std::size_t end = 0; end != std::string::npos;) {
        end = path.find('/', end + 1);
        const std::string folder = path.substr(0, end);
        if (::mkdir(folder.c_str(), mode) != 0) {
            const int error = errno;
            struct stat status = {};
            if (::stat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
                return error;
            }
        }
    }
    return 0;
}

int CFileReplacement::Begin(const std::string& path)
{
    m_path = TargetOf(path);
    if (m_path.empty()) {
        return errno;
    }
    const std::string folder = m_path.substr(0, std::max<std::size_t>(m_path.rfind('/'), 1));
    m_folder = CFileDescriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!m_folder || !RetryBriefly([this] { return ::flock(m_folder.Get(), LOCK_EX | LOCK_NB) == 0; })) {
        return errno;
    }
    return 0;
}

int CFileReplacement::Read(std::size_t maxBytes, std::vector<BYTE>* bytes) const
{
    bytes->clear();
    // Without blocking, for the path may be a FIFO that nobody writes to.
    const CFileDescriptor file(::open(m_path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (!file) {
        return errno == ENOENT ? 0 : errno;
    }
    if (!IsRegularFile(file)) {
        return EINVAL;
    }
    if (ReadBytes(file, maxBytes + 1, bytes) != ERROR_SUCCESS) {
        return EIO;
    }
    return bytes->size() > maxBytes ? EFBIG : 0;
}

int CFileReplacement::Replace(std::span<const BYTE> bytes) const
{
    // With the lock there is one such file at most; one that is there was left by a process that was killed.
    const std::string newPath = m_path + ".new";
    ::unlink(newPath.c_str());
    const int error = WriteNew(newPath, bytes);
    if (error != 0) {
        ::unlink(newPath.c_str());
        return error;
    }
    if (::rename(newPath.c_str(), m_path.c_str()) != 0) {
        const int renamed = errno;
        ::unlink(newPath.c_str());
        return renamed;
    }
    ::fsync(m_folder.Get()); // the change is made; a power failure now may bring the old file back
    return 0;
}

int CFileReplacement::WriteNew(const std::string& path, std::span<const BYTE> bytes) const
{
    struct stat old = {};
    const bool exists = ::stat(m_path.c_str(), &old) == 0;
    // The folder's rights alone would let a read-only file be replaced.
    if (exists && ::access(m_path.c_str(), W_OK) != 0) {
        return errno;
    }
    const CFileDescriptor file(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, exists ? 0600 : 0644));
    if (!file || (exists && !TakeOver(file.Get(), old))) {
        return errno;
    }
    const int error = WriteAll(file.Get(), bytes);
    return error == 0 && ::fsync(file.Get()) != 0 ? errno : error;
}

} // namespace platform::linux
