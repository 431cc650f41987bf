#include "platform/Sync.h"

#include "platform/LastError.h"
#include "platform/sim/MachineState.h"
#include "platform/sim/SecurityDescriptor.h"

#include <new>
#include <utility>

namespace platform {

using sim::Call;

namespace {

// Windows refuses to wait for more at once. Source: Windows SDK, winnt.h (MAXIMUM_WAIT_OBJECTS).
constexpr std::size_t kMaxWaitObjects = 64;

WaitHandle OpenObject(bool isMutex, const wchar_t* name, const CSecurityDescriptor* security, bool* existed)
{
    const bool nullDacl = security != nullptr && security->hasNullDacl;
    const unsigned session = sim::CScheduler::Self().context.process.session;
    WaitHandle handle = sim::Machine().objects.Open(isMutex, {session, name}, nullDacl, existed);
    SetLastErrorCode(handle == nullptr ? ERROR_INVALID_HANDLE : *existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return handle;
}

WaitHandle OpenExistingObject(bool isMutex, const wchar_t* name)
{
    WaitHandle handle = sim::Machine().objects.OpenExisting({sim::CScheduler::Self().context.process.session, name});
    if (handle == nullptr || handle->Object()->isMutex != isMutex) {
        SetLastErrorCode(handle == nullptr ? ERROR_FILE_NOT_FOUND : ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return handle;
}

// The object behind a handle of this kind; null, with last error 6, when it is none.
sim::KernelObject* ObjectOf(const WaitHandle& handle, bool isMutex)
{
    if (handle == nullptr || handle->Object()->isMutex != isMutex) {
        SetLastErrorCode(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return handle->Object().get();
}

// A wait for these objects; empty, with last error 6, when one of them is null.
std::optional<sim::ObjectWait> MakeWait(std::span<const WaitHandle> objects, bool alertable)
{
    const sim::CMachineMemory memory;
    sim::ObjectWait wait{{}, &sim::CScheduler::Self().context, alertable};
    for (const WaitHandle& object : objects) {
        if (object == nullptr) {
            SetLastErrorCode(ERROR_INVALID_HANDLE);
            return std::nullopt;
        }
        wait.objects.push_back(object->Object());
    }
    return wait;
}

DWORD WaitForObjects(std::span<const WaitHandle> objects, DWORD timeoutMs, bool alertable)
{
    sim::MachineState& machine = sim::Machine();
    const std::optional<sim::ObjectWait> wait = MakeWait(objects, alertable);
    if (!wait) {
        return WAIT_FAILED;
    }
    if (alertable && std::exchange(sim::CScheduler::Self().isInterrupted, false)) {
        return WAIT_IO_COMPLETION;
    }
    DWORD result = machine.objects.TryTake(*wait);
    if (result != WAIT_TIMEOUT) {
        return result;
    }
    if (alertable && machine.timers.RunDueRoutines()) {
        return WAIT_IO_COMPLETION;
    }
    if (timeoutMs == 0) {
        return WAIT_TIMEOUT;
    }
    result = machine.objects.Wait(*wait, machine.DeadlineAfter(timeoutMs));
    if (result == WAIT_IO_COMPLETION) {
        machine.timers.RunDueRoutines();
    }
    return result;
}

} // namespace

WaitHandle CreateNamedMutex(const wchar_t* name, BOOL initialOwner, const CSecurityDescriptor* security)
{
    if (sim::Machine().faults.Take(Call::kCreateNamedMutexThrows)) {
        throw std::bad_alloc();
    }
    if (sim::FailsByFault(Call::kCreateNamedMutex)) {
        return nullptr;
    }
    bool existed = false;
    WaitHandle mutex = OpenObject(true, name, security, &existed);
    if (mutex != nullptr && !existed && initialOwner) {
        sim::Machine().objects.TryTake({{mutex->Object()}, &sim::CScheduler::Self().context, false});
    }
    return mutex;
}

WaitHandle OpenNamedMutex(const wchar_t* name)
{
    return sim::FailsByFault(Call::kOpenNamedMutex) ? nullptr : OpenExistingObject(true, name);
}

BOOL ReleaseOwnedMutex(const WaitHandle& mutex)
{
    if (sim::FailsByFault(Call::kReleaseOwnedMutex)) {
        return FALSE;
    }
    sim::KernelObject* object = ObjectOf(mutex, true);
    if (object == nullptr) {
        return FALSE;
    }
    if (!sim::Machine().objects.Release(*object, sim::CScheduler::Self().context)) {
        SetLastErrorCode(ERROR_NOT_OWNER);
        return FALSE;
    }
    return TRUE;
}

WaitHandle CreateNamedEvent(const wchar_t* name, const CSecurityDescriptor* security)
{
    if (sim::FailsByFault(Call::kCreateNamedEvent)) {
        return nullptr;
    }
    bool existed = false;
    return OpenObject(false, name, security, &existed);
}

WaitHandle OpenNamedEvent(const wchar_t* name)
{
    return sim::FailsByFault(Call::kOpenNamedEvent) ? nullptr : OpenExistingObject(false, name);
}

BOOL SetNamedEvent(const WaitHandle& event)
{
    sim::KernelObject* object = ObjectOf(event, false);
    if (object == nullptr) {
        return FALSE;
    }
    sim::Machine().objects.SetEvent(*object);
    return TRUE;
}

BOOL PulseNamedEvent(const WaitHandle& event)
{
    sim::KernelObject* object = ObjectOf(event, false);
    if (object == nullptr) {
        return FALSE;
    }
    const bool misses = sim::Machine().faults.Take(Call::kPulseNamedEventMisses).has_value();
    sim::Machine().objects.PulseEvent(*object, misses);
    return TRUE;
}

DWORD WaitForOne(const WaitHandle& object, DWORD timeoutMs, BOOL alertable)
{
    if (sim::FailsByFault(Call::kWaitForOne)) {
        return WAIT_FAILED;
    }
    return WaitForObjects(std::span(&object, 1), timeoutMs, alertable != FALSE);
}

DWORD WaitForAny(std::span<const WaitHandle> objects, DWORD timeoutMs, BOOL alertable)
{
    if (sim::FailsByFault(Call::kWaitForAny)) {
        return WAIT_FAILED;
    }
    if (objects.empty() || objects.size() > kMaxWaitObjects) {
        SetLastErrorCode(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    return WaitForObjects(objects, timeoutMs, alertable != FALSE);
}

} // namespace platform

namespace platform::sim {

void CMachine::OtherProcessAcquiresMutex(const CString& name, unsigned session)
{
    bool existed = false;
    WaitHandle& handle = m_state->otherHandles[{session, name}];
    handle = m_state->objects.Open(true, {session, name}, false, &existed);
    if (handle == nullptr) {
        EndProgram("another process cannot acquire what is an event");
    }
    const ObjectWait wait{{handle->Object()}, &m_state->otherProcess, false};
    if (m_state->objects.TryTake(wait) == WAIT_TIMEOUT) {
        m_state->objects.Wait(wait, kNever);
    }
}

void CMachine::OtherProcessReleasesMutex(const CString& name, unsigned session)
{
    const WaitHandle handle = std::exchange(m_state->otherHandles[{session, name}], nullptr);
    if (handle == nullptr || !m_state->objects.Release(*handle->Object(), m_state->otherProcess)) {
        EndProgram("another process releases a mutex that it does not own");
    }
}

void CMachine::OtherProcessAbandonsMutex(const CString& name, unsigned session)
{
    const WaitHandle handle = std::exchange(m_state->otherHandles[{session, name}], nullptr);
    if (handle == nullptr || handle->Object()->owner != &m_state->otherProcess) {
        EndProgram("another process abandons a mutex that it does not own");
    }
    m_state->objects.Abandon(*handle->Object());
}

BOOL CMachine::OtherProcessSetsEvent(const CString& name, unsigned session)
{
    const KernelObjectPtr event = m_state->objects.Find({session, name});
    if (event == nullptr || event->isMutex) {
        return FALSE;
    }
    m_state->objects.SetEvent(*event);
    return TRUE;
}

bool CMachine::IsMutexOwned(const CString& name, unsigned session) const
{
    const KernelObjectPtr mutex = m_state->objects.Find({session, name});
    return mutex != nullptr && mutex->owner != nullptr;
}

bool CMachine::NamedObjectExists(const CString& name, unsigned session) const
{
    return m_state->objects.Find({session, name}) != nullptr;
}

bool CMachine::NamedObjectHasNullDacl(const CString& name, unsigned session) const
{
    const KernelObjectPtr object = m_state->objects.Find({session, name});
    return object != nullptr && object->nullDacl;
}

std::size_t CMachine::NamedObjectCount() const { return m_state->objects.Count(); }

} // namespace platform::sim
