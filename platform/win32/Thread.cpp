#include "platform/Thread.h"

#include "platform/win32/Handle.h"
#include "platform/win32/Interruption.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace platform {

class CThread {
public:
    win32::CKernelHandle m_handle;
    std::atomic<bool> m_isInterrupted = false;
};

namespace {

// What a new thread is to do.
struct Work {
    ThreadPtr thread;
    ThreadEntry entry;
    void* argument;
};

thread_local CThread* t_thread = nullptr; // the calling thread; null for one that StartThread has not started

std::atomic<unsigned> g_runningThreads = 0;

DWORD WINAPI Run(void* argument)
{
    const Work work = *std::unique_ptr<Work>(static_cast<Work*>(argument));
    t_thread = work.thread.get();
    const DWORD exitCode = work.entry(work.argument);
    --g_runningThreads;
    return exitCode;
}

} // namespace

ThreadPtr StartThread(ThreadEntry entry, void* argument)
{
    auto thread = std::make_shared<CThread>();
    auto work = std::make_unique<Work>(Work{thread, entry, argument});
    ++g_runningThreads;
    thread->m_handle.Reset(::CreateThread(nullptr, 0, Run, work.get(), 0, nullptr));
    if (!thread->m_handle) {
        --g_runningThreads;
        return nullptr;
    }
    static_cast<void>(work.release()); // the thread's now
    return thread;
}

DWORD WaitForThread(const ThreadPtr& thread, DWORD timeoutMs)
{
    return ::WaitForSingleObject(thread ? thread->m_handle.Get() : nullptr, timeoutMs);
}

void InterruptWait(const ThreadPtr& thread)
{
    if (thread) {
        thread->m_isInterrupted = true;
        ::QueueUserAPC([](ULONG_PTR) {}, thread->m_handle.Get(), 0);
    }
}

bool win32::TakeInterruption() { return t_thread != nullptr && t_thread->m_isInterrupted.exchange(false); }

DWORD CurrentProcessIdentifier() { return ::GetCurrentProcessId(); }

DWORD CurrentThreadIdentifier() { return ::GetCurrentThreadId(); }

void EndProcess(int exitCode)
{
    if (g_runningThreads == 0) {
        std::exit(exitCode); // NOLINT(concurrency-mt-unsafe): there is no other thread
    }
    // ExitProcess would end the other threads first and then call the libraries, which may wait forever for a lock
    // that such a thread held.
    std::fflush(nullptr);
    ::TerminateProcess(::GetCurrentProcess(), static_cast<UINT>(exitCode));
    std::abort(); // not reached: a process may always end itself
}

} // namespace platform
