// SIGINT and SIGTERM as an order to stop.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace reportd {

// From its construction to its destruction these signals do not end the process but are noted here. One object at a
// time.
class CStopSignal {
public:
    // onStop: called once, on a thread of this object, when the first one comes; must not throw; may be empty. Throws
    // std::system_error when signals cannot be taken or no thread can be started.
    explicit CStopSignal(std::function<void()> onStop);
    ~CStopSignal();
    CStopSignal(const CStopSignal&) = delete;
    CStopSignal& operator=(const CStopSignal&) = delete;

    // Both may be called from any thread.
    bool HasCome() const;
    // Waits for a signal, at most this long. Whether one has come.
    bool WaitFor(std::chrono::milliseconds time);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace reportd
