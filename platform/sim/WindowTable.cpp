#include "platform/sim/WindowTable.h"

#include "platform/Text.h"

#include <algorithm>

namespace platform::sim {

void CWindowTable::AddClass(DWORD processId, const CString& className) { m_classes.emplace(processId, className); }

bool CWindowTable::IsRegistered(DWORD processId, const CString& className) const
{
    return m_classes.contains({processId, className});
}

void CWindowTable::ForgetClassesOf(DWORD processId)
{
    std::erase_if(m_classes, [&](const auto& known) { return known.first == processId; });
}

void CWindowTable::Add(const WindowPtr& window)
{
    std::erase_if(m_windows, [](const auto& known) { return known.expired(); });
    m_windows.push_back(window);
}

std::vector<WindowPtr> CWindowTable::All() const
{
    const CMachineMemory memory;
    std::vector<WindowPtr> windows;
    for (const auto& known : m_windows) {
        WindowPtr window = known.lock();
        if (window != nullptr && window->exists) {
            windows.push_back(std::move(window));
        }
    }
    return windows;
}

WindowPtr CWindowTable::Find(unsigned session, const CString& className) const
{
    const std::vector<WindowPtr> windows = All();
    const auto found = std::find_if(windows.begin(), windows.end(), [&](const WindowPtr& window) {
        return window->process.session == session && window->className == className;
    });
    return found == windows.end() ? nullptr : *found;
}

void CWindowTable::DestroyAllOf(const SimThread& thread)
{
    for (const WindowPtr& window : All()) {
        if (window->thread == &thread) {
            window->exists = false;
        }
    }
}

void CWindowTable::Post(CWindow& window, const CWindow::Message& message)
{
    const CMachineMemory memory;
    window.queue.push_back(message);
    if (window.thread->messageWait == &window) {
        window.thread->messageWait = nullptr;
        m_scheduler.Wake(*window.thread, WAIT_OBJECT_0);
    }
}

CWindow::Message CWindowTable::Next(CWindow& window)
{
    if (window.queue.empty()) {
        window.thread->messageWait = &window;
        m_scheduler.Wait([&window] { return "a message to window \"" + EncodeUtf8(window.className) + "\""; }, kNever);
    }
    const CWindow::Message message = window.queue.front();
    window.queue.pop_front();
    return message;
}

} // namespace platform::sim
