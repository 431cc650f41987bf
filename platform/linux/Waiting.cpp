#include "platform/linux/Waiting.h"

#include "platform/Clock.h"
#include "platform/linux/ErrorCode.h"
#include "platform/linux/Mutex.h"
#include "platform/portable/FileTime.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <sys/eventfd.h>

namespace platform {

namespace linux {

constinit std::mutex g_dispatcher;

namespace {

thread_local CThreadState* t_state = nullptr;

} // namespace

CThreadState& CThreadState::Current()
{
    if (t_state == nullptr) {
        thread_local CThreadState state; // of a thread that StartThread has not started
        t_state = &state;
    }
    return *t_state;
}

void CThreadState::MakeCurrent() { t_state = this; }

void CThreadState::End()
{
    const std::lock_guard lock(g_dispatcher);
    while (!m_ownedMutexes.empty()) {
        m_ownedMutexes.back()->Abandon();
    }
    while (!m_armedTimers.empty()) {
        m_armedTimers.back()->Detach();
    }
}

bool CThreadState::PrepareWake()
{
    if (!m_wake) {
        m_wake = CFileDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        if (!m_wake) {
            SetLastErrorFrom(errno);
        }
    }
    return static_cast<bool>(m_wake);
}

void CThreadState::Wake() { ::eventfd_write(m_wake.Get(), 1); }

void CThreadState::ClearWake()
{
    eventfd_t count = 0;
    ::eventfd_read(m_wake.Get(), &count);
}

void CThreadState::Interrupt()
{
    if (m_alertableWait == nullptr) {
        m_isInterrupted = true;
    } else if (!m_alertableWait->ended) {
        // Here and now, so that it takes nothing that is signalled before the thread runs.
        m_alertableWait->ended = true;
        m_alertableWait->result = WAIT_IO_COMPLETION;
        Wake();
    }
}

bool CThreadState::FindDueTimers()
{
    for (CTimer* timer : m_armedTimers) {
        std::uint64_t expirations = 0;
        if (::read(timer->m_armed, &expirations, sizeof(expirations)) == sizeof(expirations)) {
            timer->m_isDue = true;
        }
    }
    return std::ranges::any_of(m_armedTimers, &CTimer::m_isDue);
}

void CThreadState::RunDueTimers(std::unique_lock<std::mutex>& lock)
{
    const FILETIME now =
        FileTimeOf(static_cast<std::uint64_t>(ReadTime() * portable::kUnitsPerSecond + portable::kUnixEpochCount));
    // A routine may arm, disarm and close timers, so each round looks at the list again.
    for (;;) {
        const auto due = std::ranges::find_if(m_armedTimers, &CTimer::m_isDue);
        if (due == m_armedTimers.end()) {
            return;
        }
        const TimerRoutine routine = (*due)->m_routine;
        void* const argument = (*due)->m_argument;
        (*due)->Detach();
        lock.unlock();
        routine(argument, now.dwLowDateTime, now.dwHighDateTime);
        lock.lock();
    }
}

} // namespace linux

std::deque<CWaitObject::Entry>::const_iterator CWaitObject::FirstEntry() const
{
    return std::ranges::find_if(m_waits, [](const Entry& entry) { return !entry.wait->ended; });
}

linux::CThreadState* CWaitObject::FirstWaiting() const
{
    const auto first = FirstEntry();
    return first == m_waits.end() ? nullptr : &first->wait->thread;
}

void CWaitObject::EndFirstWait(DWORD status)
{
    const Entry& entry = *FirstEntry();
    entry.wait->ended = true;
    entry.wait->result = status + entry.index;
    entry.wait->thread.Wake();
}

void CWaitObject::WakeWaiting()
{
    for (const Entry& entry : m_waits) {
        entry.wait->thread.Wake();
    }
}

CTimer::~CTimer()
{
    const std::lock_guard lock(linux::g_dispatcher);
    Detach();
}

void CTimer::Detach()
{
    if (m_thread != nullptr) {
        std::erase(m_thread->m_armedTimers, this);
    }
    m_thread = nullptr;
    m_isDue = false;
}

} // namespace platform
