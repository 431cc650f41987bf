#include "platform/FolderWatch.h"

#include "platform/win32/Handle.h"

namespace platform {

namespace {

struct ChangeHandleTrait {
    using Type = HANDLE;
    static Type Invalid() { return INVALID_HANDLE_VALUE; }
    static void Close(Type handle) { ::FindCloseChangeNotification(handle); }
};
using CChangeHandle = win32::CUniqueResource<ChangeHandleTrait>;

constexpr DWORD kFolderEvents = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE;
// How the folder can appear in the one around it.
constexpr DWORD kAroundEvents = FILE_NOTIFY_CHANGE_DIR_NAME;

bool IsMissing(DWORD error) { return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND; }

// The folder around what has this path; for a name alone the working directory.
CString FolderOf(const CString& path)
{
    const std::size_t end = path.find_last_of(L"\\/");
    return end == CString::npos ? L"." : path.substr(0, end + 1);
}

} // namespace

class CFolderWatch {
public:
    explicit CFolderWatch(const CString& folder) : m_folder(folder), m_around(FolderOf(folder)) {}

    HANDLE Handle() const { return m_handle.Get(); }

    // Watches the folder, or, as long as there is none, the one around it. False, with the last error set, on failure.
    bool Attach()
    {
        m_handle.Reset(); // which would keep a folder that is being removed
        if (AddFolder()) {
            return true;
        }
        if (!IsMissing(::GetLastError())) {
            return false;
        }
        m_handle.Reset(::FindFirstChangeNotificationW(m_around.c_str(), FALSE, kAroundEvents));
        // It may have appeared in between.
        return m_handle && (AddFolder() || IsMissing(::GetLastError()));
    }

    // Goes on watching when the handle has been signalled. Whether that was a change; FALSE in *works, with the last
    // error set, on failure.
    bool Continue(bool* works)
    {
        const bool wasAttached = m_isAttached;
        *works = (m_isAttached && ::FindNextChangeNotification(Handle())) || Attach();
        return wasAttached || m_isAttached;
    }

private:
    // Watches the folder itself in place of what is watched, if it is there.
    bool AddFolder()
    {
        CChangeHandle handle(::FindFirstChangeNotificationW(m_folder.c_str(), FALSE, kFolderEvents));
        m_isAttached = static_cast<bool>(handle);
        if (m_isAttached) {
            m_handle = std::move(handle);
        }
        return m_isAttached;
    }

    CString m_folder;
    CString m_around;
    CChangeHandle m_handle;
    bool m_isAttached = false; // to the folder itself, not only to the one around it
};

FolderWatchPtr OpenFolderWatch(const CString& folder)
{
    auto watch = std::make_shared<CFolderWatch>(folder);
    return watch->Attach() ? watch : nullptr;
}

DWORD WaitForFolderChange(const FolderWatchPtr& watch, DWORD timeoutMs)
{
    // The value for no handle would be a wait for this process.
    if (EventSourceOf(watch) == -1) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    const ULONGLONG deadlineMs = ::GetTickCount64() + timeoutMs;
    for (DWORD restMs = timeoutMs;;) {
        const DWORD result = ::WaitForSingleObject(watch->Handle(), restMs);
        if (result != WAIT_OBJECT_0) {
            return result;
        }
        bool works = false;
        const bool changed = watch->Continue(&works);
        if (!works) {
            return WAIT_FAILED;
        }
        if (changed) {
            return WAIT_OBJECT_0;
        }
        if (timeoutMs != INFINITE) {
            const ULONGLONG nowMs = ::GetTickCount64();
            restMs = nowMs < deadlineMs ? static_cast<DWORD>(deadlineMs - nowMs) : 0;
        }
    }
}

std::intptr_t EventSourceOf(const FolderWatchPtr& watch)
{
    return watch == nullptr ? -1 : reinterpret_cast<std::intptr_t>(watch->Handle());
}

} // namespace platform
