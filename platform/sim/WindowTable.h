// The windows of the simulated machine.
#pragma once

#include "platform/sim/Scheduler.h"
#include "platform/Window.h"

#include <deque>
#include <optional>
#include <set>
#include <utility>

namespace platform {

// A dialog window with the queue of its messages.
class CWindow {
public:
    explicit CWindow(CMessageReceiver& messageReceiver) : receiver(messageReceiver) {}
    ~CWindow();
    CWindow(const CWindow&) = delete;
    CWindow& operator=(const CWindow&) = delete;

    struct Message {
        UINT number;
        WPARAM wParam;
        LPARAM lParam;
    };

    CMessageReceiver& receiver;
    sim::SimThread* thread = nullptr; // that created it
    sim::ProcessIdentity process = {};
    CString className = {};
    WORD templateNumber = 0;
    bool exists = true; // not destroyed
    bool takesInput = true;
    bool getsSessionNotices = false;
    int receiving = 0;                // calls of ReceiveMessage under way
    std::optional<int> exitCode = {}; // that the loop has been asked to return and has not yet
    std::deque<Message> queue = {};
};

} // namespace platform

namespace platform::sim {

// All windows of the machine, and the classes that its processes have registered.
class CWindowTable {
public:
    explicit CWindowTable(CScheduler& scheduler) : m_scheduler(scheduler) {}

    void AddClass(DWORD processId, const CString& className);
    bool IsRegistered(DWORD processId, const CString& className) const;
    void ForgetClassesOf(DWORD processId);

    void Add(const WindowPtr& window);
    // The windows that exist, the one made first first.
    std::vector<WindowPtr> All() const;
    // The session's window of this class; null when there is none.
    WindowPtr Find(unsigned session, const CString& className) const;
    // Takes away the windows of an ending thread.
    void DestroyAllOf(const SimThread& thread);

    // Puts a message into the queue and wakes the window's thread.
    void Post(CWindow& window, const CWindow::Message& message);
    // The next message of the window; waits for it.
    CWindow::Message Next(CWindow& window);

private:
    CScheduler& m_scheduler;
    std::set<std::pair<DWORD, CString>> m_classes; // by process
    std::vector<std::weak_ptr<CWindow>> m_windows;
};

} // namespace platform::sim
