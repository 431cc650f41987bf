#include "platform/FolderCheck.h"

#include "platform/Text.h"
#include "platform/win32/Handle.h"

namespace platform {

namespace {

// ERROR_SUCCESS when files can be made in the folder, or when there is none.
DWORD ErrorOfWriting(const CString& folder)
{
    const DWORD attributes = ::GetFileAttributesW(folder.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        const DWORD error = ::GetLastError();
        return error == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : error;
    }
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        return ERROR_DIRECTORY;
    }
    const win32::CFileHandle handle(::CreateFileW(folder.c_str(), FILE_ADD_FILE,
                                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                                  OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    return handle ? ERROR_SUCCESS : ::GetLastError();
}

DWORD ErrorOfOpening(const wchar_t* mutexName)
{
    const win32::CKernelHandle mutex(::OpenMutexW(MUTEX_MODIFY_STATE | SYNCHRONIZE, FALSE, mutexName));
    const DWORD error = mutex ? ERROR_SUCCESS : ::GetLastError();
    return error == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : error;
}

} // namespace

std::vector<CString> FindUnusableFolders(const CString& dataFolder, const wchar_t* mutexName)
{
    std::vector<CString> lines;
    if (dataFolder.empty()) {
        lines.emplace_back(L"cannot store data: the common application-data folder is unknown");
    } else if (const DWORD error = ErrorOfWriting(dataFolder); error != ERROR_SUCCESS) {
        lines.push_back(FormatText(L"cannot write to the data folder %s (error %u)", dataFolder, error));
    }
    if (const DWORD error = ErrorOfOpening(mutexName); error != ERROR_SUCCESS) {
        lines.push_back(FormatText(L"cannot use the lock %s (error %u)", mutexName, error));
    }
    return lines;
}

void ReportUnusableFolders(const CString&, const wchar_t*) {}

} // namespace platform
