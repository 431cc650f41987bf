#include "platform/linux/FileBytes.h"

#include "platform/linux/ErrorCode.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>

namespace platform::linux {

bool IsRegularFile(const CFileDescriptor& file)
{
    struct stat status = {};
    return ::fstat(file.Get(), &status) == 0 && S_ISREG(status.st_mode);
}

DWORD ReadBytes(const CFileDescriptor& file, std::size_t maxBytes, std::vector<BYTE>* bytes)
{
    constexpr std::size_t kChunk = 65536;
    while (bytes->size() < maxBytes) {
        const std::size_t begin = bytes->size();
        bytes->resize(std::min(maxBytes, begin + kChunk));
        ssize_t count = 0;
        do {
            count = ::read(file.Get(), bytes->data() + begin, bytes->size() - begin);
        } while (count < 0 && errno == EINTR);
        bytes->resize(begin + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (count < 0) {
            return ErrorCodeOf(errno);
        }
        if (count == 0) {
            break;
        }
    }
    return ERROR_SUCCESS;
}

} // namespace platform::linux
