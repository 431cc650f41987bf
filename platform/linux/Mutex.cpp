#include "platform/linux/Mutex.h"

#include "platform/linux/ErrorCode.h"
#include "platform/linux/NamedFile.h"
#include "platform/linux/SignalBlock.h"

#include <cerrno>
#include <new>
#include <sys/file.h>
#include <system_error>
#include <thread>

namespace platform::linux {

namespace {

constexpr char kFreeMark = '0';
constexpr char kOwnedMark = '1';

bool TryFlock(const CFileDescriptor& file) { return ::flock(file.Get(), LOCK_EX | LOCK_NB) == 0; }

void WriteMark(const CFileDescriptor& file, char mark)
{
    // The byte exists since the mutex was made, so this does not fail for lack of space. If it fails all the same,
    // only the news of an abandonment is lost, never the exclusion.
    [[maybe_unused]] const ssize_t written = ::pwrite(file.Get(), &mark, 1, 0);
}

} // namespace

CMutex::CMutex(CFileDescriptor file) : m_file(std::make_shared<CFileDescriptor>(std::move(file))) {}

CMutex::~CMutex()
{
    const std::lock_guard lock(g_dispatcher);
    // Explicitly, since a thread that waits for the flock keeps the file open until it has got it.
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
        taken = TryTake(thread);
    }
    if (taken == WAIT_FAILED) {
        return std::nullopt;
    }
    if (!ShareExistence(*m_file)) {
        SetLastErrorFrom(errno);
        return std::nullopt;
    }
    return taken == WAIT_OBJECT_0;
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
    try {
        // The process's signals are not for helpers to handle.
        sigset_t all;
        sigfillset(&all);
        const CSignalBlock block(all);
        std::thread(&CMutex::AwaitLock, m_file, weak_from_this()).detach();
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
    thread.m_ownedMutexes.push_back(this);
    return abandoned ? WAIT_ABANDONED_0 : WAIT_OBJECT_0;
}

void CMutex::AwaitLock(std::shared_ptr<CFileDescriptor> file, std::weak_ptr<CMutex> mutex)
{
    for (;;) {
        while (::flock(file->Get(), LOCK_EX) != 0 && errno == EINTR) {
        }
        // Without the handle nobody wants the lock any more; it goes with the file. Otherwise the handle must outlive
        // the guard, should this be its last copy.
        const std::shared_ptr<CMutex> living = mutex.lock();
        if (!living) {
            return;
        }
        const std::lock_guard lock(g_dispatcher);
        if (living->AcceptLock()) {
            return;
        }
    }
}

bool CMutex::AcceptLock()
{
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
