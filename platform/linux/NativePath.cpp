#include "platform/linux/NativePath.h"

#include "platform/Text.h"

namespace platform::linux {

std::string NativePath(const CString& path)
{
    return path.find(L'\0') == CString::npos ? EncodeUtf8(path) : std::string();
}

CString FolderOf(const CString& path)
{
    const std::size_t end = path.rfind(L'/');
    return end == CString::npos ? L"." : path.substr(0, end + 1);
}

} // namespace platform::linux
