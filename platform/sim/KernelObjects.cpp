#include "platform/sim/KernelObjects.h"

#include "platform/Text.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace platform::sim {

Caller CallerOf(const ThreadContext& thread)
{
    return {thread.process.processId, thread.process.session, thread.threadId};
}

namespace {

std::string NamesOf(const ObjectWait& wait)
{
    std::string names;
    for (const KernelObjectPtr& object : wait.objects) {
        names += (names.empty() ? "" : " or ") + std::string(object->isMutex ? "mutex" : "event") + " \"" +
                 EncodeUtf8(object->name) + "\"";
        if (object->owner != nullptr) {
            names += " (owned by thread " + std::to_string(object->owner->threadId) + " of process " +
                     std::to_string(object->owner->process.processId) + ")";
        }
    }
    return names;
}

} // namespace

ObjectName::ObjectName(unsigned callersSession, CString objectName)
    : session(objectName.starts_with(L"Global\\") ? 0 : callersSession), name(std::move(objectName))
{
}

WaitHandle CKernelObjects::Open(bool isMutex, const ObjectName& name, bool nullDacl, bool* existed)
{
    std::weak_ptr<CWaitObject>& known = m_byName[name];
    WaitHandle handle = known.lock();
    *existed = handle != nullptr;
    if (*existed) {
        return handle->Object()->isMutex == isMutex ? handle : nullptr;
    }
    auto object = std::make_shared<KernelObject>();
    object->isMutex = isMutex;
    object->session = name.session;
    object->name = name.name;
    object->nullDacl = nullDacl;
    std::erase_if(m_objects, [](const auto& gone) { return gone.expired(); });
    m_objects.push_back(object);
    handle = std::make_shared<CWaitObject>(std::move(object));
    known = handle;
    if (m_observer != nullptr) {
        m_observer->OnObjectMade(name.session, name.name);
    }
    return handle;
}

KernelObjectPtr CKernelObjects::Find(const ObjectName& name) const
{
    const WaitHandle handle = OpenExisting(name);
    return handle == nullptr ? nullptr : handle->Object();
}

WaitHandle CKernelObjects::OpenExisting(const ObjectName& name) const
{
    const auto known = m_byName.find(name);
    return known == m_byName.end() ? nullptr : known->second.lock();
}

std::size_t CKernelObjects::Count() const
{
    return static_cast<std::size_t>(
        std::count_if(m_byName.begin(), m_byName.end(), [](const auto& known) { return !known.second.expired(); }));
}

// WAIT_OBJECT_0 or WAIT_ABANDONED_0 when the object could be taken.
std::optional<DWORD> CKernelObjects::TryTakeOne(KernelObject& object, const ThreadContext& taker)
{
    if (!object.isMutex) {
        return std::exchange(object.signalled, false) ? std::optional(WAIT_OBJECT_0) : std::nullopt;
    }
    if (object.owner != nullptr && object.owner != &taker) {
        return std::nullopt;
    }
    object.owner = &taker;
    if (++object.depth == 1 && m_observer != nullptr) {
        m_observer->OnMutexAcquired(object.session, object.name, CallerOf(taker));
    }
    return std::exchange(object.abandoned, false) ? WAIT_ABANDONED_0 : WAIT_OBJECT_0;
}

void CKernelObjects::TellReleased(const KernelObject& mutex, const ThreadContext& owner, bool abandoned)
{
    if (m_observer != nullptr) {
        m_observer->OnMutexReleased(mutex.session, mutex.name, CallerOf(owner), abandoned);
    }
}

DWORD CKernelObjects::TryTake(const ObjectWait& wait)
{
    for (std::size_t i = 0; i < wait.objects.size(); ++i) {
        if (const auto taken = TryTakeOne(*wait.objects[i], *wait.taker)) {
            return *taken + static_cast<DWORD>(i);
        }
    }
    return WAIT_TIMEOUT;
}

DWORD CKernelObjects::Wait(const ObjectWait& wait, std::int64_t deadline)
{
    SimThread& self = CScheduler::Self();
    self.objectWait = &wait;
    const DWORD result = m_scheduler.Wait([&wait] { return NamesOf(wait); }, deadline);
    self.objectWait = nullptr;
    return result;
}

void CKernelObjects::OfferToWaiting(KernelObject& object)
{
    for (SimThread* thread : m_scheduler.Waiting()) {
        if (thread->objectWait == nullptr) {
            continue;
        }
        const auto& objects = thread->objectWait->objects;
        const auto position =
            std::find_if(objects.begin(), objects.end(), [&](const auto& one) { return one.get() == &object; });
        if (position == objects.end()) {
            continue;
        }
        const auto taken = TryTakeOne(object, *thread->objectWait->taker);
        if (!taken) {
            return;
        }
        m_scheduler.Wake(*thread, *taken + static_cast<DWORD>(position - objects.begin()));
    }
}

void CKernelObjects::SetEvent(KernelObject& event)
{
    event.signalled = true;
    OfferToWaiting(event);
}

void CKernelObjects::PulseEvent(KernelObject& event, bool misses)
{
    if (m_observer != nullptr) {
        m_observer->OnEventPulsed(event.session, event.name, CallerOf(CScheduler::Self().context));
    }
    if (!misses) {
        SetEvent(event);
    }
    event.signalled = false;
}

BOOL CKernelObjects::Release(KernelObject& mutex, const ThreadContext& taker)
{
    if (mutex.owner != &taker) {
        return FALSE;
    }
    if (--mutex.depth == 0) {
        mutex.owner = nullptr;
        TellReleased(mutex, taker, false);
        OfferToWaiting(mutex);
    }
    return TRUE;
}

void CKernelObjects::Abandon(KernelObject& mutex)
{
    TellReleased(mutex, *mutex.owner, true);
    mutex.owner = nullptr;
    mutex.depth = 0;
    mutex.abandoned = true;
    OfferToWaiting(mutex);
}

void CKernelObjects::AbandonAllOf(const ThreadContext& owner)
{
    for (const auto& known : m_objects) {
        const KernelObjectPtr object = known.lock();
        if (object != nullptr && object->owner == &owner) {
            Abandon(*object);
        }
    }
}

} // namespace platform::sim
