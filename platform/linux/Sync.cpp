#include "platform/Sync.h"

#include "platform/LastError.h"
#include "platform/linux/ErrorCode.h"
#include "platform/linux/Event.h"
#include "platform/linux/Mutex.h"
#include "platform/linux/NamedFile.h"
#include "platform/linux/Waiting.h"

#include <algorithm>
#include <cerrno>
#include <malloc.h>
#include <new>

namespace platform {

namespace {

using namespace linux;

// As many as the Windows functions take.
constexpr std::size_t kMaxWaitObjects = 64;

DWORD Fail(DWORD code)
{
    SetLastErrorCode(code);
    return WAIT_FAILED;
}

// Takes the first object that is signalled. WAIT_TIMEOUT when none is.
DWORD TakeFirst(std::span<const WaitHandle> objects, CThreadState& thread)
{
    for (std::size_t i = 0; i < objects.size(); ++i) {
        const DWORD result = objects[i]->TryTake(thread);
        if (result == WAIT_FAILED) {
            return WAIT_FAILED;
        }
        if (result != WAIT_TIMEOUT) {
            return result + static_cast<DWORD>(i);
        }
    }
    return WAIT_TIMEOUT;
}

// Keeps a wait entered in its objects. The dispatcher is held at both ends of its life.
class CEntries {
public:
    CEntries(std::span<const WaitHandle> objects, Wait& wait, bool alertable) : CEntries(wait, objects)
    {
        wait.thread.m_alertableWait = alertable ? &wait : nullptr;
        // When this throws half-way, the destructor still runs.
        for (std::size_t i = 0; i < objects.size(); ++i) {
            objects[i]->Enter(wait, static_cast<DWORD>(i));
        }
    }
    ~CEntries()
    {
        m_wait.thread.m_alertableWait = nullptr;
        for (const WaitHandle& object : m_objects) {
            object->Remove(m_wait);
        }
    }
    CEntries(const CEntries&) = delete;
    CEntries& operator=(const CEntries&) = delete;

private:
    CEntries(const Wait& wait, std::span<const WaitHandle> objects) : m_objects(objects), m_wait(wait) {}

    std::span<const WaitHandle> m_objects;
    const Wait& m_wait;
};

std::vector<pollfd> DescriptorsOf(std::span<const WaitHandle> objects, const CThreadState& thread, bool alertable)
{
    std::vector<pollfd> descriptors = {{thread.m_wake.Get(), POLLIN, 0}};
    for (const WaitHandle& object : objects) {
        if (object->WatchedDescriptor() >= 0) {
            descriptors.push_back({object->WatchedDescriptor(), POLLIN, 0});
        }
    }
    if (alertable) {
        for (const CTimer* timer : thread.m_armedTimers) {
            descriptors.push_back({timer->m_armed, POLLIN, 0});
        }
    }
    return descriptors;
}

// The part of a wait that sleeps. WAIT_IO_COMPLETION: timers are due, their routines have not run yet.
DWORD Sleep(std::span<const WaitHandle> objects, DWORD timeoutMs, bool alertable, CThreadState& thread,
            std::unique_lock<std::mutex>& lock)
{
    if (!thread.PrepareWake()) {
        return WAIT_FAILED;
    }
    const Deadline deadline = DeadlineAfter(timeoutMs);
    if (!deadline) {
        ::malloc_trim(0); // a sleep of any length: what the work before it has freed goes back to the system
    }
    Wait wait{thread};
    const CEntries entries(objects, wait, alertable);
    for (;;) {
        if (!std::ranges::all_of(objects, [](const WaitHandle& object) { return object->Watch(); })) {
            return WAIT_FAILED;
        }
        std::vector<pollfd> descriptors = DescriptorsOf(objects, thread, alertable);
        lock.unlock();
        const bool polled = Poll(descriptors, deadline);
        lock.lock();
        thread.ClearWake();
        if (wait.ended) {
            return wait.result;
        }
        if (!polled) {
            return WAIT_FAILED;
        }
        const DWORD result = TakeFirst(objects, thread);
        if (result != WAIT_TIMEOUT) {
            return result;
        }
        if (alertable && thread.FindDueTimers()) {
            return WAIT_IO_COMPLETION;
        }
        if (deadline && std::chrono::steady_clock::now() >= *deadline) {
            return WAIT_TIMEOUT;
        }
    }
}

DWORD TakeOrSleep(std::span<const WaitHandle> objects, DWORD timeoutMs, bool alertable, CThreadState& thread,
                  std::unique_lock<std::mutex>& lock)
{
    DWORD result = TakeFirst(objects, thread);
    if (result == WAIT_TIMEOUT && alertable && thread.FindDueTimers()) {
        result = WAIT_IO_COMPLETION;
    }
    if (result == WAIT_TIMEOUT && timeoutMs != 0) {
        result = Sleep(objects, timeoutMs, alertable, thread, lock);
    }
    return result;
}

DWORD WaitFor(std::span<const WaitHandle> objects, DWORD timeoutMs, bool alertable)
{
    if (objects.empty() || objects.size() > kMaxWaitObjects) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if (std::ranges::find(objects, nullptr) != objects.end()) {
        return Fail(ERROR_INVALID_HANDLE);
    }
    CThreadState& thread = CThreadState::Current();
    std::unique_lock lock(g_dispatcher);
    if (alertable && thread.TakeInterrupt()) {
        return WAIT_IO_COMPLETION;
    }
    DWORD result = WAIT_FAILED;
    try {
        // Handing a mutex over to this thread must not need memory.
        thread.m_ownedMutexes.reserve(thread.m_ownedMutexes.size() + 1);
        result = TakeOrSleep(objects, timeoutMs, alertable, thread, lock);
    } catch (const std::bad_alloc&) {
        return Fail(ERROR_OUTOFMEMORY);
    }
    if (result == WAIT_IO_COMPLETION) {
        thread.RunDueTimers(lock);
    }
    return result;
}

// The object as what the operation is for; null, with last error 6, for none and for one of another kind.
template <class Object>
Object* As(const WaitHandle& object)
{
    auto* const wanted = dynamic_cast<Object*>(object.get());
    if (wanted == nullptr) {
        SetLastErrorCode(ERROR_INVALID_HANDLE);
    }
    return wanted;
}

} // namespace

WaitHandle CreateNamedMutex(const wchar_t* name, BOOL initialOwner, const CSecurityDescriptor* security)
{
    CFileDescriptor file = OpenNamedFile(name, NamedKind::kMutex, security);
    if (!file) {
        return nullptr;
    }
    const Existence existence = ClaimExistence(file);
    if (existence == Existence::kUnknown) {
        SetLastErrorFrom(errno);
        return nullptr;
    }
    auto mutex = std::make_shared<CMutex>(std::move(file));
    bool existed = existence == Existence::kOld;
    if (!existed) {
        const std::optional<bool> made = mutex->Make(initialOwner != FALSE, CThreadState::Current());
        if (!made) {
            return nullptr;
        }
        existed = !*made;
    }
    SetLastErrorCode(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return mutex;
}

WaitHandle OpenNamedMutex(const wchar_t* name)
{
    CFileDescriptor file = OpenExistingFile(name, NamedKind::kMutex);
    if (!file) {
        return nullptr;
    }
    if (JoinExistence(file) == Existence::kUnknown) {
        SetLastErrorFrom(errno);
        return nullptr;
    }
    return std::make_shared<CMutex>(std::move(file));
}

BOOL ReleaseOwnedMutex(const WaitHandle& mutex)
{
    CMutex* const object = As<CMutex>(mutex);
    if (object == nullptr) {
        return FALSE;
    }
    const CThreadState& thread = CThreadState::Current();
    const std::lock_guard lock(g_dispatcher);
    if (!object->Release(thread)) {
        SetLastErrorCode(ERROR_NOT_OWNER);
        return FALSE;
    }
    return TRUE;
}

WaitHandle CreateNamedEvent(const wchar_t* name, const CSecurityDescriptor* security)
{
    CFileDescriptor file = OpenNamedFile(name, NamedKind::kEvent, security);
    if (!file) {
        return nullptr;
    }
    bool existed = false;
    WaitHandle event = CEvent::Open(std::move(file), ClaimExistence, &existed);
    if (event) {
        SetLastErrorCode(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    }
    return event;
}

WaitHandle OpenNamedEvent(const wchar_t* name)
{
    CFileDescriptor file = OpenExistingFile(name, NamedKind::kEvent);
    bool existed = false;
    return file ? CEvent::Open(std::move(file), JoinExistence, &existed) : nullptr;
}

BOOL SetNamedEvent(const WaitHandle& event)
{
    CEvent* const object = As<CEvent>(event);
    if (object == nullptr) {
        return FALSE;
    }
    const std::lock_guard lock(g_dispatcher);
    return object->Set();
}

BOOL PulseNamedEvent(const WaitHandle& event)
{
    CEvent* const object = As<CEvent>(event);
    if (object == nullptr) {
        return FALSE;
    }
    const std::lock_guard lock(g_dispatcher);
    object->Pulse();
    return TRUE;
}

DWORD WaitForOne(const WaitHandle& object, DWORD timeoutMs, BOOL alertable)
{
    return WaitFor({&object, 1}, timeoutMs, alertable != FALSE);
}

DWORD WaitForAny(std::span<const WaitHandle> objects, DWORD timeoutMs, BOOL alertable)
{
    return WaitFor(objects, timeoutMs, alertable != FALSE);
}

} // namespace platform
