#include "platform/Sync.h"

#include "platform/win32/Handle.h"
#include "platform/win32/Interruption.h"
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

// Whether an alertable wait ends here because the thread has been interrupted.
bool EndsInterrupted()
{
    const bool isInterrupted = win32::TakeInterruption();
    if (isInterrupted) {
        ::SleepEx(0, TRUE); // runs the APC of the interruption, which would otherwise end another wait
    }
    return isInterrupted;
}

// Runs a wait for these handles. When an alertable wait is interrupted, an object that it has taken is given back.
template <class Wait>
DWORD Interruptibly(std::span<const HANDLE> handles, BOOL alertable, Wait wait)
{
    if (!alertable) {
        return wait();
    }
    if (EndsInterrupted()) {
        return WAIT_IO_COMPLETION;
    }
    const DWORD result = wait();
    if (!EndsInterrupted()) {
        return result;
    }
    const DWORD index = result >= WAIT_ABANDONED_0 ? result - WAIT_ABANDONED_0 : result - WAIT_OBJECT_0;
    if (index < handles.size() && !::SetEvent(handles[index])) {
        ::ReleaseMutex(handles[index]);
    }
    return WAIT_IO_COMPLETION;
}

} // namespace

WaitHandle CreateNamedMutex(const wchar_t* name, BOOL initialOwner, const CSecurityDescriptor* security)
{
    auto object = std::make_shared<CWaitObject>();
    SECURITY_ATTRIBUTES attributes = win32::AttributesOf(security);
    ::SetLastError(ERROR_SUCCESS);
    object->m_handle.Reset(::CreateMutexW(&attributes, initialOwner, name));
    return object->m_handle ? object : nullptr;
}

WaitHandle OpenNamedMutex(const wchar_t* name)
{
    auto object = std::make_shared<CWaitObject>();
    object->m_handle.Reset(::OpenMutexW(MUTEX_MODIFY_STATE | SYNCHRONIZE, FALSE, name));
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

WaitHandle OpenNamedEvent(const wchar_t* name)
{
    auto object = std::make_shared<CWaitObject>();
    object->m_handle.Reset(::OpenEventW(EVENT_MODIFY_STATE | SYNCHRONIZE, FALSE, name));
    return object->m_handle ? object : nullptr;
}

BOOL SetNamedEvent(const WaitHandle& event) { return ::SetEvent(NativeHandle(event)); }

BOOL PulseNamedEvent(const WaitHandle& event) { return ::PulseEvent(NativeHandle(event)); }

DWORD WaitForOne(const WaitHandle& object, DWORD timeoutMs, BOOL alertable)
{
    const std::array handles = {NativeHandle(object)};
    return Interruptibly(handles, alertable, [&] { return ::WaitForSingleObjectEx(handles[0], timeoutMs, alertable); });
}

DWORD WaitForAny(std::span<const WaitHandle> objects, DWORD timeoutMs, BOOL alertable)
{
    std::array<HANDLE, MAXIMUM_WAIT_OBJECTS> handles = {};
    if (objects.size() > handles.size()) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    for (std::size_t i = 0; i < objects.size(); ++i) {
        handles[i] = NativeHandle(objects[i]);
    }
    const auto count = static_cast<DWORD>(objects.size());
    return Interruptibly(std::span<const HANDLE>(handles).first(count), alertable, [&] {
        return ::WaitForMultipleObjectsEx(count, handles.data(), FALSE, timeoutMs, alertable);
    });
}

} // namespace platform
