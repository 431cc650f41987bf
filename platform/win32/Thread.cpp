#include "platform/Thread.h"

#include "platform/win32/Handle.h"

#include <objbase.h>

namespace platform {

class CThread {
public:
    win32::CKernelHandle m_handle;
};

ThreadPtr StartThread(ThreadEntry entry, void* argument)
{
    auto thread = std::make_shared<CThread>();
    thread->m_handle.Reset(::CreateThread(nullptr, 0, entry, argument, 0, nullptr));
    return thread->m_handle ? thread : nullptr;
}

DWORD WaitForThread(const ThreadPtr& thread, DWORD timeoutMs)
{
    return ::WaitForSingleObject(thread ? thread->m_handle.Get() : nullptr, timeoutMs);
}

DWORD CurrentProcessIdentifier() { return ::GetCurrentProcessId(); }

DWORD CurrentThreadIdentifier() { return ::GetCurrentThreadId(); }

void EnterApartment() { static_cast<void>(::CoInitialize(nullptr)); }

void LeaveApartment() { ::CoUninitialize(); }

} // namespace platform
