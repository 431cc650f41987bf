#include "testing/process/HeldFile.h"

#include "platform/Text.h"
#include "platform/win32/Handle.h"

namespace testing_support {

std::shared_ptr<const void> HoldFileOpen(const std::string& path)
{
    auto file = std::make_shared<platform::win32::CFileHandle>(::CreateFileW(
        platform::DecodeUtf8(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    return *file ? std::move(file) : nullptr;
}

} // namespace testing_support
