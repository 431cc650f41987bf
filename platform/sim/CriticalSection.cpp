#include "platform/CriticalSection.h"

#include "platform/sim/MachineState.h"

#include <deque>

namespace platform {

struct CCriticalSection::Impl {
    const sim::SimThread* owner = nullptr;
    unsigned depth = 0;
    std::deque<sim::SimThread*> waiting = {};
};

CCriticalSection::CCriticalSection() : m_impl(std::make_unique<Impl>()) {}

CCriticalSection::~CCriticalSection()
{
    if (m_impl->owner != nullptr) {
        sim::EndProgram("a critical section is destroyed with a thread inside");
    }
}

void CCriticalSection::Enter()
{
    sim::SimThread& self = sim::CScheduler::Self();
    if (m_impl->owner == nullptr) {
        m_impl->owner = &self;
    } else if (m_impl->owner != &self) {
        const sim::CMachineMemory memory;
        m_impl->waiting.push_back(&self);
        sim::Machine().scheduler.Wait(
            [this] {
                return "a critical section that thread " + std::to_string(m_impl->owner->context.threadId) +
                       " is inside";
            },
            sim::kNever);
    }
    ++m_impl->depth;
}

void CCriticalSection::Leave()
{
    if (m_impl->owner != &sim::CScheduler::Self()) {
        sim::EndProgram("a critical section is left by a thread that is not inside");
    }
    if (--m_impl->depth > 0) {
        return;
    }
    // Handed to the one that has waited longest, so that it cannot be overtaken.
    m_impl->owner = nullptr;
    if (!m_impl->waiting.empty()) {
        sim::SimThread* next = m_impl->waiting.front();
        m_impl->waiting.pop_front();
        m_impl->owner = next;
        sim::Machine().scheduler.Wake(*next, WAIT_OBJECT_0);
    }
}

} // namespace platform
