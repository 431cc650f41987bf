#include "platform/Thread.h"

#include "platform/LastError.h"
#include "platform/linux/ErrorCode.h"
#include "platform/linux/Waiting.h"
#include "platform/linux/WriteSignals.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <new>
#include <sys/eventfd.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace platform {

class CThread {
public:
    // Readable, for good, once the thread has ended.
    linux::CFileDescriptor m_ended = linux::CFileDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    // Whoever sees it set also sees all that the thread has done; a descriptor alone promises nothing about memory.
    std::atomic<bool> m_hasEnded = false;
    linux::CThreadState m_state;
};

namespace {

std::atomic<int> g_runningThreads = 0; // of StartThread

void Run(const ThreadPtr& thread, ThreadEntry entry, void* argument)
{
    linux::CWriteSignals::BlockForThread();
    thread->m_state.MakeCurrent();
    entry(argument);
    // Whoever sees the thread ended also finds the mutexes abandoned that it still owned.
    thread->m_state.End();
    // Before anybody can know that the thread has ended, so that it does not count for them.
    --g_runningThreads;
    thread->m_hasEnded = true;
    ::eventfd_write(thread->m_ended.Get(), 1);
}

// Threads would have a heap each. They hardly ever allocate at the same time, and what one frees serves the other. Free
// memory up to a limit stays until a wait returns it (Sync.cpp), or it would come and go with each report. Set before
// there are threads.
constexpr int kKeptHeapBytes = 1024 * 1024;
// NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread yet
[[maybe_unused]] const bool g_isHeapShared = ::mallopt(M_ARENA_MAX, 1) != 0;
// NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread yet
[[maybe_unused]] const bool g_keepsHeap = ::mallopt(M_TRIM_THRESHOLD, kKeptHeapBytes) != 0;
// NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread yet
[[maybe_unused]] const bool g_keepsBlocks = ::mallopt(M_MMAP_THRESHOLD, kKeptHeapBytes) != 0;

void Launch(const ThreadPtr& thread, ThreadEntry entry, void* argument)
{
    ++g_runningThreads;
    try {
        std::thread(&Run, thread, entry, argument).detach();
    } catch (...) {
        --g_runningThreads;
        throw;
    }
}

} // namespace

ThreadPtr StartThread(ThreadEntry entry, void* argument)
{
    int error = 0;
    try {
        auto thread = std::make_shared<CThread>();
        if (thread->m_ended) {
            Launch(thread, entry, argument);
            return thread;
        }
        error = errno;
    } catch (const std::system_error& failure) {
        error = failure.code().value();
    } catch (const std::bad_alloc&) {
        error = ENOMEM;
    }
    linux::SetLastErrorFrom(error);
    return nullptr;
}

DWORD WaitForThread(const ThreadPtr& thread, DWORD timeoutMs)
{
    if (!thread) {
        SetLastErrorCode(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    const linux::Deadline deadline = linux::DeadlineAfter(timeoutMs);
    pollfd ended = {thread->m_ended.Get(), POLLIN, 0};
    for (;;) {
        if (thread->m_hasEnded) {
            return WAIT_OBJECT_0;
        }
        if (deadline && std::chrono::steady_clock::now() >= *deadline) {
            return WAIT_TIMEOUT;
        }
        if (!linux::Poll({&ended, 1}, deadline)) {
            return WAIT_FAILED;
        }
    }
}

void InterruptWait(const ThreadPtr& thread)
{
    if (thread) {
        const std::lock_guard lock(linux::g_dispatcher);
        thread->m_state.Interrupt();
    }
}

DWORD CurrentProcessIdentifier() { return static_cast<DWORD>(::getpid()); }

DWORD CurrentThreadIdentifier() { return static_cast<DWORD>(::gettid()); }

void EndProcess(int exitCode)
{
    if (g_runningThreads == 0) {
        std::exit(exitCode); // NOLINT(concurrency-mt-unsafe): there is no other thread
    }
    // No destructors, whose objects the threads may be using; but nothing of the output is lost.
    std::fflush(nullptr);
    ::_exit(exitCode);
}

} // namespace platform
