#include "platform/Sync.h"

#include "platform/win32/Handle.h"
#include "platform/win32/SecurityDescriptor.h"

#include <array>

namespace platform {

class CWaitObject {
public:
    win32::CKernelHandle m_handle;
};

namespace {

// The native handle, null for none.
HANDLE NativeHandle(const WaitHandle& object) { return object ? object->m_handle.Get() : nullptr; }

} // namespace

WaitHandle CreateNamedMutex(const wchar_t* name, BOOL initialOwner, const CSecurityDescriptor* security)
{
    auto object = std::make_shared<CWaitObject>();
    SECURITY_ATTRIBUTES attributes = win32::AttributesOf(security);
    ::SetLastError(ERROR_SUCCESS);
    object->m_handle.Reset(::CreateMutexW(&attributes, initialOwner, name));
    return object->m_handle ? object : nullptr;
}

BOOL ReleaseOwnedMutex(const WaitHandle& mutex) { return ::ReleaseMutex(NativeHandle(mutex)); }

WaitHandle CreateNamedEvent(const wchar_t* name, const CSecurityDescriptor* security)
{
    auto object = std::make_shared<CWaitObject>();
    SECURITY_ATTRIBUTES attributes = win32::AttributesOf(security);
    ::SetLastError(ERROR_SUCCESS);
    object->m_handle.Reset(::CreateEventW(&attributes, FALSE, FALSE, name));
    return object->m_handle ? object : nullptr;
}

BOOL SetNamedEvent(const WaitHandle& event) { return ::SetEvent(NativeHandle(event)); }

BOOL PulseNamedEvent(const WaitHandle& event) { return ::PulseEvent(NativeHandle(event)); }

DWORD WaitForOne(const WaitHandle& object, DWORD timeoutMs, BOOL alertable)
{
    return ::WaitForSingleObjectEx(NativeHandle(object), timeoutMs, alertable);
}

DWORD WaitForAny(std::span<const WaitHandle> objects, DWORD timeoutMs)
{
    std::array<HANDLE, MAXIMUM_WAIT_OBJECTS> handles = {};
    if (objects.size() > handles.size()) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    for (std::size_t i = 0; i < objects.size(); ++i) {
        handles[i] = NativeHandle(objects[i]);
    }
    return ::WaitForMultipleObjects(static_cast<DWORD>(objects.size()), handles.data(), FALSE, timeoutMs);
}

} // namespace platform
