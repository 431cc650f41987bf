// Named mutexes as locked files.
#pragma once

#include "platform/linux/Waiting.h"

namespace platform::linux {

// One handle of a named mutex. Owning the mutex means an exclusive flock on its file, whose first byte says so too: it
// is '1' from the moment the mutex is acquired until it is released. The system drops the flock of a process that ends,
// however it ends, but leaves the byte; whoever acquires the mutex and finds '1' knows that it was abandoned.
//
// A handle belongs to the process. Which of its threads owns the mutex is kept here. The last copy of a handle takes
// ownership with it: closing a mutex that a thread still owns abandons it.
class CMutex final : public CWaitObject, public std::enable_shared_from_this<CMutex> {
public:
    // file: opened by OpenNamedFile, its existence claimed.
    explicit CMutex(CFileDescriptor file);
    ~CMutex() override;

    // Completes a new mutex and lets other processes open it. initialOwner: whether thread is to own it at once.
    // Whether that could be done; it cannot when somebody has locked the file without having the mutex. None, with the
    // last error set, on failure. Dispatcher not held.
    std::optional<bool> Make(bool initialOwner, CThreadState& thread);

    DWORD TryTake(CThreadState& thread) override;
    bool Watch() override;
    // Gives up one acquisition of this thread. False when it is not the owner.
    bool Release(const CThreadState& thread);
    // Gives up all acquisitions and hands the mutex to the next waiting thread of this process, or else lets go of the
    // flock. The mark stays.
    void Abandon();

private:
    class CLockWait;

    // Makes thread the owner; the flock is held. WAIT_OBJECT_0 or WAIT_ABANDONED_0.
    DWORD Own(CThreadState& thread);
    // Body of the thread that waits for the flock.
    static void AwaitLock(const std::shared_ptr<CLockWait>& wait, const std::weak_ptr<CMutex>& mutex);
    // The wait for the flock has ended; error: 0 when it was acquired, else an errno. False when the flock has been
    // released again since and must be waited for once more.
    bool AcceptLock(int error);

    std::shared_ptr<CFileDescriptor> m_file; // shared with the thread that waits for the flock
    std::shared_ptr<CLockWait> m_lockWait;   // of that thread; null before the first
    int m_lockError = 0;                     // errno of a failed wait; reported by the next Watch
    CThreadState* m_owner = nullptr;         // not null exactly while this handle counts on holding the flock
    unsigned m_acquisitions = 0;
    bool m_isAwaited = false; // a thread waits for the flock
};

} // namespace platform::linux
