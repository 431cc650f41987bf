// The named mutexes and events of the simulated machine and the waits on them.
#pragma once

#include "platform/sim/Observer.h"
#include "platform/sim/Scheduler.h"
#include "platform/Sync.h"

#include <map>
#include <optional>
#include <tuple>

namespace platform::sim {

// A thread as observers see it.
Caller CallerOf(const ThreadContext& thread);

// A mutex or an auto-reset event.
struct KernelObject {
    bool isMutex = false;
    unsigned session = 0; // 0: of the whole machine
    CString name = {};
    bool nullDacl = false;
    bool signalled = false;               // of an event
    const ThreadContext* owner = nullptr; // of a mutex; null: free
    unsigned depth = 0;                   // how often its owner acquired it
    bool abandoned = false;               // its last owner ended without releasing it
};
using KernelObjectPtr = std::shared_ptr<KernelObject>;

// A thread's wait for the first of several objects. Keeps them alive although their last handle may be closed.
struct ObjectWait {
    std::vector<KernelObjectPtr> objects;
    const ThreadContext* taker; // who acquires a mutex
    bool alertable;
};

// The session and name of an object: session 0, that of the whole machine, when the name begins with "Global\\", else
// the caller's own.
struct ObjectName {
    ObjectName(unsigned callersSession, CString objectName);
    bool operator<(const ObjectName& other) const
    {
        return std::tie(session, name) < std::tie(other.session, other.name);
    }

    unsigned session;
    CString name;
};

// All named objects of the machine.
class CKernelObjects {
public:
    // Told of the mutexes that change hands; null: nobody.
    CKernelObjects(CScheduler& scheduler, CObserver* const& observer) : m_scheduler(scheduler), m_observer(observer) {}

    // A handle of the object of this name, made when there is none (*existed: whether there was). Null when the name
    // belongs to an object of the other kind.
    WaitHandle Open(bool isMutex, const ObjectName& name, bool nullDacl, bool* existed);
    // The object of this name, or a handle of it; null when no handle of it is open.
    KernelObjectPtr Find(const ObjectName& name) const;
    WaitHandle OpenExisting(const ObjectName& name) const;
    // How many names have an open handle.
    std::size_t Count() const;

    // Takes the first signalled object: its index plus WAIT_OBJECT_0 or WAIT_ABANDONED_0; WAIT_TIMEOUT when none is.
    DWORD TryTake(const ObjectWait& wait);
    // Waits, also for a routine of a due timer when alertable, until the virtual time deadline. Results as TryTake, or
    // WAIT_IO_COMPLETION with the routines still to be run.
    DWORD Wait(const ObjectWait& wait, std::int64_t deadline);

    void SetEvent(KernelObject& event);
    // misses: releases no thread, as if none were waiting.
    void PulseEvent(KernelObject& event, bool misses);
    // FALSE when taker is not the owner.
    BOOL Release(KernelObject& mutex, const ThreadContext& taker);
    void Abandon(KernelObject& mutex);
    // Abandons all that a thread owns.
    void AbandonAllOf(const ThreadContext& owner);

private:
    std::optional<DWORD> TryTakeOne(KernelObject& object, const ThreadContext& taker);
    void TellReleased(const KernelObject& mutex, const ThreadContext& owner, bool abandoned);
    void OfferToWaiting(KernelObject& object);

    CScheduler& m_scheduler;
    CObserver* const& m_observer;
    std::map<ObjectName, std::weak_ptr<CWaitObject>> m_byName; // names with an open handle
    std::vector<std::weak_ptr<KernelObject>> m_objects;        // also those that only a waiting thread keeps
};

} // namespace platform::sim

namespace platform {

// All handles of a name share one of these, so that the name is free again when the last of them is closed.
class CWaitObject {
public:
    explicit CWaitObject(sim::KernelObjectPtr object) : m_object(std::move(object)) {}
    const sim::KernelObjectPtr& Object() const { return m_object; }

private:
    sim::KernelObjectPtr m_object;
};

} // namespace platform
