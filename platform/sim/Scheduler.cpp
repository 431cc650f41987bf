#include "platform/sim/Scheduler.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace platform::sim {

namespace {

thread_local SimThread* t_self = nullptr;

std::string StateOf(const SimThread& thread)
{
    return "thread " + std::to_string(thread.context.threadId) +
           (thread.waitsFor ? " waits for " + thread.waitsFor() : " is ready");
}

} // namespace

void EndProgram(const std::string& reason)
{
    std::fprintf(stderr, "Simulated machine: %s\n", reason.c_str());
    std::fflush(stderr);
    std::abort();
}

CScheduler::CScheduler(Alarms alarms) : m_alarms(std::move(alarms))
{
    if (t_self != nullptr) {
        EndProgram("a thread of one machine makes another");
    }
    ReserveThreads(1);
    m_threads.push_back(std::make_shared<SimThread>());
    t_self = m_threads.front().get();
    t_self->context.threadId = m_lastThreadId;
    m_running = t_self;
}

CScheduler::~CScheduler()
{
    const SimThread& self = Self();
    for (const auto& thread : m_threads) {
        if (thread.get() != &self && !thread->hasEnded) {
            EndProgram("it ends before all its threads: " + StateOf(*thread));
        }
    }
    for (const auto& thread : m_threads) {
        if (thread->systemThread.joinable()) {
            thread->systemThread.join();
        }
    }
    t_self = nullptr;
}

SimThread& CScheduler::Self()
{
    if (t_self == nullptr) {
        EndProgram("a platform function was called by a thread that belongs to no machine");
    }
    return *t_self;
}

std::shared_ptr<SimThread> CScheduler::Start(const ProcessIdentity& process, std::function<void()> body)
{
    ForgetEndedThreads();
    auto thread = std::make_shared<SimThread>();
    ReserveThreads(m_threads.size() + 1);
    thread->context.process = process;
    thread->context.threadId = ++m_lastThreadId;
    SimThread* record = thread.get();
    thread->systemThread = std::thread([this, record, body = std::move(body)] { RunThread(*record, body); });
    m_threads.push_back(thread);
    m_ready.push_back(record);
    return thread;
}

void CScheduler::ReserveThreads(std::size_t count)
{
    m_threads.reserve(count);
    m_ready.reserve(count);
    m_waiting.reserve(count);
}

// An ended thread has nothing left to do but to go, so that joining it does not wait for anybody who needs the baton.
void CScheduler::ForgetEndedThreads()
{
    std::erase_if(m_threads, [](const auto& thread) {
        if (thread->hasEnded) {
            thread->systemThread.join();
        }
        return thread->hasEnded;
    });
}

void CScheduler::RunThread(SimThread& self, const std::function<void()>& body)
{
    {
        std::unique_lock lock(m_batonLock);
        self.turn.wait(lock, [&] { return m_running == &self; });
    }
    t_self = &self;
    body();
    self.hasEnded = true;
    for (SimThread* waiting : Waiting()) {
        if (waiting->joined == &self) {
            Wake(*waiting, WAIT_OBJECT_0);
        }
    }
    SimThread& next = NextToRun();
    const std::lock_guard lock(m_batonLock);
    m_running = &next;
    next.turn.notify_one();
}

DWORD CScheduler::Wait(Description waitsFor, std::int64_t deadline)
{
    BeginWait(std::move(waitsFor), deadline, false);
    return Self().waitResult;
}

DWORD CScheduler::WaitForEnd(const SimThread& thread, std::int64_t deadline)
{
    SimThread& self = Self();
    self.joined = &thread;
    const DWORD result =
        Wait([&thread] { return "the end of thread " + std::to_string(thread.context.threadId); }, deadline);
    self.joined = nullptr;
    return result;
}

void CScheduler::WaitForIdle(std::int64_t deadline)
{
    BeginWait([] { return std::string("all others to wait"); }, deadline, true);
}

void CScheduler::BeginWait(Description waitsFor, std::int64_t deadline, bool forIdle)
{
    SimThread& self = Self();
    self.waitsFor = std::move(waitsFor);
    self.deadline = deadline;
    self.waitsForIdle = forIdle;
    m_waiting.push_back(&self);
    PassBaton(self);
}

void CScheduler::Wake(SimThread& thread, DWORD result)
{
    std::erase(m_waiting, &thread);
    thread.waitsFor = nullptr;
    thread.waitResult = result;
    m_ready.push_back(&thread);
}

void CScheduler::PassBaton(SimThread& self)
{
    SimThread& next = NextToRun();
    if (&next == &self) {
        return;
    }
    std::unique_lock lock(m_batonLock);
    m_running = &next;
    next.turn.notify_one();
    self.turn.wait(lock, [&] { return m_running == &self; });
}

SimThread& CScheduler::NextToRun()
{
    while (m_ready.empty()) {
        MoveClock();
    }
    SimThread* next = m_ready.front();
    m_ready.erase(m_ready.begin());
    return *next;
}

void CScheduler::MoveClock()
{
    std::int64_t earliest = m_alarms.nextDue();
    SimThread* idler = nullptr;
    for (SimThread* thread : m_waiting) {
        if (!thread->waitsForIdle) {
            earliest = std::min(earliest, thread->deadline);
        } else if (idler == nullptr || thread->deadline < idler->deadline) {
            idler = thread;
        }
    }
    if (idler != nullptr && idler->deadline < earliest) {
        m_now = idler->deadline;
        Wake(*idler, WAIT_TIMEOUT);
        return;
    }
    if (earliest == kNever) {
        ReportDeadlock();
    }
    m_now = earliest;
    m_alarms.soundDue();
    for (SimThread* thread : Waiting()) {
        if (!thread->waitsForIdle && thread->deadline <= m_now) {
            Wake(*thread, WAIT_TIMEOUT);
        }
    }
}

void CScheduler::ReportDeadlock() const
{
    std::string report = "deadlock after " + std::to_string(m_now / 10'000) + " ms:";
    for (const SimThread* thread : m_waiting) {
        report += "\n  " + StateOf(*thread);
    }
    EndProgram(report);
}

} // namespace platform::sim
