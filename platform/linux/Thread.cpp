#include "platform/Thread.h"

#include "platform/LastError.h"
#include "platform/linux/ErrorCode.h"
#include "platform/linux/Waiting.h"

#include <atomic>
#include <cerrno>
#include <new>
#include <sys/eventfd.h>
#include <system_error>
#include <thread>

namespace platform {

class CThread {
public:
    // Readable, for good, once the thread has ended.
    native::CFileDescriptor m_ended = native::CFileDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    // Whoever sees it set also sees all that the thread has done; a descriptor alone promises nothing about memory.
    std::atomic<bool> m_hasEnded = false;
};

namespace {

void Run(const ThreadPtr& thread, ThreadEntry entry, void* argument)
{
    entry(argument);
    // Whoever sees the thread ended also finds the mutexes abandoned that it still owned.
    native::CThreadState::Current().End();
    thread->m_hasEnded = true;
    ::eventfd_write(thread->m_ended.Get(), 1);
}

} // namespace

ThreadPtr StartThread(ThreadEntry entry, void* argument)
{
    int error = 0;
    try {
        auto thread = std::make_shared<CThread>();
        if (thread->m_ended) {
            std::thread(&Run, thread, entry, argument).detach();
            return thread;
        }
        error = errno;
    } catch (const std::system_error& failure) {
        error = failure.code().value();
    } catch (const std::bad_alloc&) {
        error = ENOMEM;
    }
    native::SetLastErrorFrom(error);
    return nullptr;
}

DWORD WaitForThread(const ThreadPtr& thread, DWORD timeoutMs)
{
    if (!thread) {
        SetLastErrorCode(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    const native::Deadline deadline = native::DeadlineAfter(timeoutMs);
    std::vector<pollfd> ended = {{thread->m_ended.Get(), POLLIN, 0}};
    for (;;) {
        if (thread->m_hasEnded) {
            return WAIT_OBJECT_0;
        }
        if (deadline && std::chrono::steady_clock::now() >= *deadline) {
            return WAIT_TIMEOUT;
        }
        if (!native::Poll(ended, deadline)) {
            return WAIT_FAILED;
        }
    }
}

DWORD CurrentProcessIdentifier() { return static_cast<DWORD>(::getpid()); }

DWORD CurrentThreadIdentifier() { return static_cast<DWORD>(::gettid()); }

void EnterApartment() {}

void LeaveApartment() {}

} // namespace platform
