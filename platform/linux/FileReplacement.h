// Replacing a file as a whole.
#pragma once

#include "platform/linux/FileDescriptor.h"
#include "platform/Types.h"

#include <span>
#include <string>
#include <vector>

namespace platform::linux {

// Makes a folder and those that lead to it, of this mode less the umask. 0 or errno.
int MakeFolders(const std::string& path, unsigned mode);

// One change of a small text file, which other processes that change it in this way wait for. The file's readers see
// the old content or the new one, never a part. One thread; one for a folder at a time.
class CFileReplacement {
public:
    // path: absolute, its folder exists; a symbolic link stands for the file that it points to. 0 or errno: ETIMEDOUT
    // when another process has been changing the file for kBriefLimit (BriefRetry.h), ENOENT for a link to nothing.
    int Begin(const std::string& path);

    // The present content, with errno 0; empty for a file that does not exist. EFBIG when it has more than maxBytes,
    // EINVAL when it is no regular file.
    int Read(std::size_t maxBytes, std::vector<BYTE>* bytes) const;

    // Puts a file with this content in its place, with owner, group and mode of the old one as far as the system
    // allows; a new one has mode 0644 less the umask. EACCES when this user may not write to the old one. 0 or errno;
    // then the old file is as it was.
    int Replace(std::span<const BYTE> bytes) const;

private:
    int WriteNew(const std::string& path, std::span<const BYTE> bytes) const;

    std::string m_path;       // without links
    CFileDescriptor m_folder; // with an exclusive flock
};

} // namespace platform::linux
