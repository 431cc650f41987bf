#include "platform/Files.h"

#include "platform/win32/Handle.h"
#include "platform/win32/SecurityDescriptor.h"

#include <algorithm>
#include <array>
#include <limits>
#include <shlobj.h>

namespace platform {

const wchar_t* const kPathSeparator = L"\\";

class COutputFile {
public:
    win32::CFileHandle m_handle;
};

BOOL GetCommonAppDataFolder(CString* folder)
{
    folder->clear();
    std::array<wchar_t, MAX_PATH> path = {};
    if (!::SHGetSpecialFolderPathW(nullptr, path.data(), CSIDL_COMMON_APPDATA, TRUE)) {
        return FALSE;
    }
    *folder = path.data();
    return TRUE;
}

BOOL PathExists(const CString& path) { return ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

BOOL QueryLastWrite(const CString& path, FILETIME* lastWrite)
{
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    if (!::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) {
        return FALSE;
    }
    *lastWrite = data.ftLastWriteTime;
    return TRUE;
}

BOOL MakeFolder(const CString& path, const CSecurityDescriptor* security)
{
    SECURITY_ATTRIBUTES attributes = win32::AttributesOf(security);
    return ::CreateDirectoryW(path.c_str(), &attributes);
}

OutputFilePtr OpenForReplace(const CString& path, const CSecurityDescriptor* security)
{
    auto output = std::make_shared<COutputFile>(); // before anything is changed, since memory may run out here
    SECURITY_ATTRIBUTES attributes = win32::AttributesOf(security);
    output->m_handle = win32::CFileHandle(
        ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, &attributes, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    return output->m_handle ? output : nullptr;
}

void WriteFileBytes(const OutputFilePtr& file, const void* bytes, std::size_t size)
{
    if (size > std::numeric_limits<DWORD>::max()) {
        throw CFileException(ERROR_INVALID_PARAMETER);
    }
    DWORD written = 0;
    if (!::WriteFile(file->m_handle.Get(), bytes, static_cast<DWORD>(size), &written, nullptr)) {
        throw CFileException(::GetLastError());
    }
    if (written != size) {
        throw CFileException(ERROR_DISK_FULL);
    }
}

DWORD ReadWholeFile(const CString& path, std::size_t maxBytes, std::vector<BYTE>* bytes)
{
    bytes->clear();
    const win32::CFileHandle handle(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                                  FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size = {};
    if (!handle || !::GetFileSizeEx(handle.Get(), &size)) {
        return ::GetLastError();
    }
    bytes->resize(static_cast<std::size_t>(std::min<ULONGLONG>(static_cast<ULONGLONG>(size.QuadPart), maxBytes)));
    std::size_t filled = 0;
    while (filled < bytes->size()) {
        const auto wanted = static_cast<DWORD>(std::min<std::size_t>(bytes->size() - filled, 1U << 30));
        DWORD got = 0;
        if (!::ReadFile(handle.Get(), bytes->data() + filled, wanted, &got, nullptr)) {
            bytes->clear();
            return ::GetLastError();
        }
        if (got == 0) {
            break;
        }
        filled += got;
    }
    bytes->resize(filled);
    return ERROR_SUCCESS;
}

} // namespace platform
