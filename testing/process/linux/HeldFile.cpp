#include "testing/process/HeldFile.h"

#include "platform/linux/FileDescriptor.h"

#include <fcntl.h>
#include <sys/file.h>

namespace testing_support {

std::shared_ptr<const void> HoldFileOpen(const std::string& path)
{
    auto file = std::make_shared<platform::linux::CFileDescriptor>(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return ::flock(file->Get(), LOCK_SH | LOCK_NB) == 0 ? std::move(file) : nullptr;
}

} // namespace testing_support
