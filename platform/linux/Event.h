// Named auto-reset events as FIFOs.
#pragma once

#include "platform/linux/NamedFile.h"
#include "platform/linux/Waiting.h"

namespace platform::linux {

// A named event of this process: all its handles of one name are copies of one. The event is signalled while its FIFO
// holds bytes, however many; so any program that writes to the file signals it. The process reads its own FIFO, which
// keeps writers from blocking, and with the last process that has the event the system drops the bytes.
//
// A thread of this process that waits is released directly, without the FIFO.
class CEvent final : public CWaitObject {
public:
    // The process's event of this open FIFO. claim: ClaimExistence, which makes it when there is none, or JoinExistence
    // (NamedFile.h). *existed: whether some process had it before. Null, with the last error set, on failure.
    // Dispatcher not held.
    static std::shared_ptr<CEvent> Open(CFileDescriptor file, Existence (*claim)(const CFileDescriptor&),
                                        bool* existed);

    explicit CEvent(CFileDescriptor file) : m_file(std::move(file)) {}

    DWORD TryTake(CThreadState& thread) override;
    int WatchedDescriptor() const override { return m_file.Get(); }
    // FALSE, with the last error set, on failure.
    BOOL Set();
    void Pulse();

private:
    // Makes the event not signalled; whether it was signalled.
    bool Reset();

    CFileDescriptor m_file;
};

} // namespace platform::linux
