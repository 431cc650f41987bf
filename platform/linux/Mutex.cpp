#include "platform/linux/Mutex.h"

#include "platform/linux/ErrorCode.h"
#include "platform/linux/NamedFile.h"
#include "platform/linux/SignalBlock.h"
#include "platform/linux/WriteSignals.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <new>
#include <sys/file.h>
#include <system_error>
#include <thread>

namespace platform::linux {

namespace {

constexpr char kFreeMark = '0';
constexpr char kOwnedMark = '1';

// Interrupts the system call in which a thread waits. Nothing else uses this signal, and its default is to be ignored.
constexpr int kInterrupt = SIGURG;
constexpr std::chrono::milliseconds kInterruptInterval{1};
constexpr int kMaxInterrupts = 1000;

bool TryFlock(const CFileDescriptor& file) { return ::flock(file.Get(), LOCK_EX | LOCK_NB) == 0; }

void WriteMark(const CFileDescriptor& file, char mark)
{
    // The byte exists since the mutex was made, so this does not fail for lack of space. If it fails all the same,
    // only the news of an abandonment is lost, never the exclusion.
    CWriteSignals signals;
    if (::pwrite(file.Get(), &mark, 1, 0) < 0) {
        signals.Note(errno);
    }
}

void PrepareInterrupt()
{
    static const bool once = [] {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        return ::sigaction(kInterrupt, &action, nullptr) == 0;
    }();
    static_cast<void>(once);
}

} // namespace

// A wait for a flock that another thread can cancel: no system call waits for a flock with a time-out.
class CMutex::CLockWait {
public:
    explicit CLockWait(std::shared_ptr<CFileDescriptor> file) : m_file(std::move(file)) {}

    // Waits on the calling thread. 0 when the flock was acquired, ECANCELED after Cancel, otherwise flock's errno.
    int Wait()
    {
        {
            const std::lock_guard lock(m_guard);
            m_thread = ::pthread_self();
            m_isWaiting = true;
        }
        int error = EINTR;
        while (error == EINTR && !m_isCancelled) {
            error = ::flock(m_file->Get(), LOCK_EX) == 0 ? 0 : errno;
        }
        const std::lock_guard lock(m_guard);
        m_isWaiting = false;
        m_isOver.notify_all();
        return m_isCancelled ? ECANCELED : error;
    }

    // Ends the wait and every later one. Any thread.
    void Cancel()
    {
        std::unique_lock lock(m_guard);
        m_isCancelled = true;
        // A signal that arrives just before the system call starts interrupts nothing, so it is repeated.
        for (int i = 0; m_isWaiting && i < kMaxInterrupts; ++i) {
            ::pthread_kill(m_thread, kInterrupt);
            m_isOver.wait_for(lock, kInterruptInterval);
        }
    }

private:
    const std::shared_ptr<CFileDescriptor> m_file;
    std::atomic<bool> m_isCancelled = false;
    std::mutex m_guard; // of the members below
    std::condition_variable m_isOver;
    pthread_t m_thread = {};
    bool m_isWaiting = false;
};

CMutex::CMutex(CFileDescriptor file) : m_file(std::make_shared<CFileDescriptor>(std::move(file))) {}

CMutex::~CMutex()
{
    if (m_lockWait) {
        m_lockWait->Cancel();
    }
    const std::lock_guard lock(g_dispatcher);
    // Explicitly, since a thread that waits for the flock keeps the file open until it has ended.
    DropExistence(*m_file);
    if (m_owner != nullptr) {
        Abandon();
    }
}

std::optional<bool> CMutex::Make(bool initialOwner, CThreadState& thread)
{
    // Whatever an earlier mutex of this name left behind, a new one is nobody's.
    WriteMark(*m_file, kFreeMark);
    DWORD taken = WAIT_OBJECT_0;
    if (initialOwner) {
        const std::lock_guard lock(g_dispatcher);
        thread.m_ownedMutexes.reserve(thread.m_ownedMutexes.size() + 1);
        taken = TryTake(thread);
    }
    if (taken == WAIT_FAILED) {
        return std::nullopt;
    }
    if (!ShareExistence(*m_file)) {
        SetLastErrorFrom(errno);
        return std::nullopt;
    }
    return taken != WAIT_TIMEOUT; // also when an old mark is still there and the mutex seems abandoned
}

DWORD CMutex::TryTake(CThreadState& thread)
{
    if (m_owner == &thread) {
        ++m_acquisitions;
        return WAIT_OBJECT_0;
    }
    if (m_owner != nullptr) {
        return WAIT_TIMEOUT;
    }
    if (!TryFlock(*m_file)) {
        if (errno == EWOULDBLOCK) {
            return WAIT_TIMEOUT;
        }
        SetLastErrorFrom(errno);
        return WAIT_FAILED;
    }
    return Own(thread);
}

bool CMutex::Watch()
{
    // With an owner in this process the mutex comes by Release; with none the flock is another process's.
    if (m_owner != nullptr || m_isAwaited) {
        return true;
    }
    if (const int error = std::exchange(m_lockError, 0); error != 0) {
        SetLastErrorFrom(error);
        return false;
    }
    try {
        m_lockWait = std::make_shared<CLockWait>(m_file);
        PrepareInterrupt();
        // The process's signals are not for helpers to handle.
        sigset_t all;
        sigfillset(&all);
        const CSignalBlock block(all);
        std::thread(&CMutex::AwaitLock, m_lockWait, weak_from_this()).detach();
    } catch (const std::system_error& error) {
        SetLastErrorFrom(error.code().value());
        return false;
    } catch (const std::bad_alloc&) {
        SetLastErrorFrom(ENOMEM);
        return false;
    }
    m_isAwaited = true;
    return true;
}

bool CMutex::Release(const CThreadState& thread)
{
    if (m_owner != &thread) {
        return false;
    }
    if (--m_acquisitions == 0) {
        WriteMark(*m_file, kFreeMark); // so that it does not count as abandoned
        Abandon();
    }
    return true;
}

void CMutex::Abandon()
{
    std::erase(m_owner->m_ownedMutexes, this);
    m_owner = nullptr;
    m_acquisitions = 0;
    if (CThreadState* next = FirstWaiting()) {
        EndFirstWait(Own(*next));
    } else {
        ::flock(m_file->Get(), LOCK_UN);
    }
}

DWORD CMutex::Own(CThreadState& thread)
{
    char mark = kFreeMark;
    const bool abandoned = ::pread(m_file->Get(), &mark, 1, 0) == 1 && mark == kOwnedMark;
    WriteMark(*m_file, kOwnedMark);
    m_owner = &thread;
    m_acquisitions = 1;
    m_lockError = 0;
    thread.m_ownedMutexes.push_back(this);
    return abandoned ? WAIT_ABANDONED_0 : WAIT_OBJECT_0;
}

void CMutex::AwaitLock(const std::shared_ptr<CLockWait>& wait, const std::weak_ptr<CMutex>& mutex)
{
    sigset_t interrupt;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, kInterrupt);
    ::pthread_sigmask(SIG_UNBLOCK, &interrupt, nullptr);
    for (;;) {
        const int error = wait->Wait();
        // Without the handle nobody wants the lock any more; it goes with the file. Otherwise the handle must outlive
        // the guard, should this be its last copy.
        const std::shared_ptr<CMutex> living = mutex.lock();
        if (!living) {
            return;
        }
        const std::lock_guard lock(g_dispatcher);
        if (living->AcceptLock(error)) {
            return;
        }
    }
}

bool CMutex::AcceptLock(int error)
{
    if (error != 0) {
        m_isAwaited = false;
        m_lockError = error;
        WakeWaiting();
        return true;
    }
    if (m_owner == nullptr) {
        CThreadState* next = FirstWaiting();
        if (next == nullptr) {
            // The wait has ended otherwise. The lock is not kept for the next one, other processes may want it.
            ::flock(m_file->Get(), LOCK_UN);
        } else if (TryFlock(*m_file)) {
            // A thread of this process may have acquired and released the mutex between the lock's coming and here;
            // so it is only now certain that the lock is held.
            EndFirstWait(Own(*next));
        } else {
            return false;
        }
    }
    m_isAwaited = false;
    return true;
}

} // namespace platform::linux
