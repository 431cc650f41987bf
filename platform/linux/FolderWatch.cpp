#include "platform/FolderWatch.h"

#include "platform/LastError.h"
#include "platform/linux/ErrorCode.h"
#include "platform/linux/FileDescriptor.h"
#include "platform/linux/NativePath.h"
#include "platform/linux/Polling.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <sys/inotify.h>

namespace platform {

namespace {

// A file that is being made is no change before it is closed: a reader who comes at once would keep its writer out.
constexpr std::uint32_t kFolderEvents =
    IN_CLOSE_WRITE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
// How the folder can appear in the one around it.
constexpr std::uint32_t kAroundEvents = IN_CREATE | IN_MOVED_TO | IN_ONLYDIR;

// How much is taken from the queue at once, in reads. What somebody who changes files faster leaves counts as a further
// change.
constexpr int kMaxReads = 64;

} // namespace

class CFolderWatch {
public:
    CFolderWatch(linux::CFileDescriptor queue, const CString& folder)
        : m_queue(std::move(queue)), m_folder(linux::NativePath(folder)),
          m_around(linux::NativePath(linux::FolderOf(folder)))
    {
    }

    int Queue() const { return m_queue.Get(); }
    // Whether it is the folder itself that is watched, not only the one around it.
    bool IsAttached() const { return m_attached >= 0; }

    // Watches the folder, or, as long as there is none, the one around it. False, with errno set, on failure.
    bool Attach()
    {
        if (AddFolder()) {
            return true;
        }
        const int around = errno == ENOENT ? ::inotify_add_watch(Queue(), m_around.c_str(), kAroundEvents) : -1;
        if (around < 0) {
            return false;
        }
        // It may have appeared in between.
        if (!AddFolder()) {
            return errno == ENOENT;
        }
        ::inotify_rm_watch(Queue(), around);
        return true;
    }

    // Takes what the system has told. Whether there was a change; none, with errno set, on failure.
    std::optional<bool> TakeChange()
    {
        const bool wasAttached = IsAttached();
        bool changed = false;
        alignas(inotify_event) std::array<char, 4096> buffer{};
        for (int reads = 0; reads < kMaxReads; ++reads) {
            const ssize_t size = ::read(Queue(), buffer.data(), buffer.size());
            if (size <= 0) {
                break;
            }
            changed = Note(buffer.data(), static_cast<std::size_t>(size)) || changed;
        }
        if (!IsAttached() && !Attach()) {
            return std::nullopt;
        }
        return changed || IsAttached() != wasAttached;
    }

private:
    bool AddFolder()
    {
        m_attached = ::inotify_add_watch(Queue(), m_folder.c_str(), kFolderEvents);
        return IsAttached();
    }

    // Whether there is a change of the folder among these events.
    bool Note(const char* events, std::size_t size)
    {
        bool changed = false;
        for (std::size_t begin = 0; begin < size;) {
            inotify_event event = {};
            std::memcpy(&event, events + begin, sizeof(event));
            begin += sizeof(event) + event.len;
            if (event.wd != m_attached && (event.mask & IN_Q_OVERFLOW) == 0) {
                continue; // of the folder around it
            }
            changed = true;
            if ((event.mask & IN_MOVE_SELF) != 0) {
                ::inotify_rm_watch(Queue(), m_attached);
            }
            if ((event.mask & (IN_MOVE_SELF | IN_IGNORED)) != 0) {
                m_attached = -1;
            }
        }
        return changed;
    }

    linux::CFileDescriptor m_queue;
    std::string m_folder;
    std::string m_around;
    int m_attached = -1; // the watch of the folder itself, -1 for none
};

FolderWatchPtr OpenFolderWatch(const CString& folder)
{
    linux::CFileDescriptor queue(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!queue) {
        linux::SetLastErrorFrom(errno);
        return nullptr;
    }
    auto watch = std::make_shared<CFolderWatch>(std::move(queue), folder);
    if (!watch->Attach()) {
        linux::SetLastErrorFrom(errno);
        return nullptr;
    }
    return watch;
}

DWORD WaitForFolderChange(const FolderWatchPtr& watch, DWORD timeoutMs)
{
    if (watch == nullptr) {
        SetLastErrorCode(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    const linux::Deadline deadline = linux::DeadlineAfter(timeoutMs);
    for (;;) {
        const std::optional<bool> changed = watch->TakeChange();
        if (!changed) {
            linux::SetLastErrorFrom(errno);
            return WAIT_FAILED;
        }
        if (*changed) {
            return WAIT_OBJECT_0;
        }
        if (deadline && std::chrono::steady_clock::now() >= *deadline) {
            return WAIT_TIMEOUT;
        }
        pollfd queue = {watch->Queue(), POLLIN, 0};
        if (!linux::Poll({&queue, 1}, deadline)) {
            return WAIT_FAILED;
        }
    }
}

std::intptr_t EventSourceOf(const FolderWatchPtr& watch) { return watch == nullptr ? -1 : watch->Queue(); }

} // namespace platform
