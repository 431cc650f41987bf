#include "platform/linux/Event.h"

#include "platform/linux/ErrorCode.h"

#include <array>
#include <cerrno>
#include <map>
#include <sys/stat.h>

namespace platform::linux {

namespace {

// What a FIFO holds at most unless somebody made it larger, in bytes.
constexpr int kFifoCapacity = 65536;

// The process's events, by device and file number of their FIFOs. Under the dispatcher.
using EventMap = std::map<std::pair<dev_t, ino_t>, std::weak_ptr<CEvent>>;

EventMap& Events()
{
    static EventMap events;
    return events;
}

} // namespace

std::shared_ptr<CEvent> CEvent::Open(CFileDescriptor file, Existence (*claim)(const CFileDescriptor&), bool* existed)
{
    struct stat status = {};
    if (::fstat(file.Get(), &status) != 0) {
        SetLastErrorFrom(errno);
        return nullptr;
    }
    // One thread at a time, but not under the dispatcher, since another process may have to be waited for.
    static constinit std::mutex opening;
    const std::lock_guard alone(opening);
    {
        const std::lock_guard lock(g_dispatcher);
        const auto known = Events().find({status.st_dev, status.st_ino});
        std::shared_ptr<CEvent> event = known == Events().end() ? nullptr : known->second.lock();
        if (event) {
            *existed = true;
            return event;
        }
    }
    const Existence existence = claim(file);
    *existed = existence == Existence::kOld;
    if (existence == Existence::kUnknown || (existence == Existence::kNew && !ShareExistence(file))) {
        SetLastErrorFrom(errno);
        return nullptr;
    }
    auto event = std::make_shared<CEvent>(std::move(file));
    const std::lock_guard lock(g_dispatcher);
    std::erase_if(Events(), [](const auto& entry) { return entry.second.expired(); });
    Events()[{status.st_dev, status.st_ino}] = event;
    return event;
}

DWORD CEvent::TryTake(CThreadState&) { return Reset() ? WAIT_OBJECT_0 : WAIT_TIMEOUT; }

BOOL CEvent::Set()
{
    if (FirstWaiting() != nullptr) {
        EndFirstWait(WAIT_OBJECT_0);
        return TRUE;
    }
    // However many bytes there are, they are read together; and a full FIFO is a signalled event.
    if (::write(m_file.Get(), "1", 1) != 1 && errno != EAGAIN) {
        SetLastErrorFrom(errno);
        return FALSE;
    }
    return TRUE;
}

void CEvent::Pulse()
{
    Reset();
    if (FirstWaiting() != nullptr) {
        EndFirstWait(WAIT_OBJECT_0);
    }
}

bool CEvent::Reset()
{
    // Bounded, for somebody may write as fast as this reads.
    std::array<char, 4096> bytes{};
    bool wasSet = false;
    for (int rest = kFifoCapacity; rest > 0;) {
        const ssize_t count = ::read(m_file.Get(), bytes.data(), bytes.size());
        if (count <= 0) {
            break;
        }
        wasSet = true;
        rest -= static_cast<int>(count);
    }
    return wasSet;
}

} // namespace platform::linux
