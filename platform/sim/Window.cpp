#include "platform/Window.h"

#include "platform/LastError.h"
#include "platform/sim/MachineState.h"
#include "platform/Thread.h"

namespace platform {

using sim::Call;

class CFoundWindow {
public:
    explicit CFoundWindow(const WindowPtr& window) : m_window(window) {}
    // Null when it has been destroyed.
    WindowPtr Window() const
    {
        WindowPtr window = m_window.lock();
        return window != nullptr && window->exists ? window : nullptr;
    }

private:
    std::weak_ptr<CWindow> m_window;
};

namespace {

// A window is its thread's alone.
void CheckThread(const CWindow& window)
{
    if (window.thread != &sim::CScheduler::Self()) {
        sim::EndProgram("a window is used by a thread that did not create it");
    }
}

LRESULT Deliver(CWindow& window, const CWindow::Message& message)
{
    ++window.receiving;
    const LRESULT result = window.receiver.ReceiveMessage(window, message.number, message.wParam, message.lParam);
    --window.receiving;
    return result;
}

} // namespace

CWindow::~CWindow() { DestroyDialogWindow(*this); }

BOOL InitializeControls(DWORD /*kinds*/) { return sim::FailsByFault(Call::kInitializeControls) ? FALSE : TRUE; }

BOOL RegisterDialogClass(const wchar_t* className)
{
    if (sim::FailsByFault(Call::kRegisterDialogClass)) {
        return FALSE;
    }
    sim::Machine().windows.AddClass(CurrentProcessIdentifier(), className);
    return TRUE;
}

WindowPtr CreateDialogWindow(WORD templateNumber, const wchar_t* className, CMessageReceiver& receiver)
{
    if (sim::FailsByFault(Call::kCreateDialogWindow)) {
        return nullptr;
    }
    sim::CWindowTable& windows = sim::Machine().windows;
    if (!windows.IsRegistered(CurrentProcessIdentifier(), className)) {
        SetLastErrorCode(ERROR_CANNOT_FIND_WND_CLASS);
        return nullptr;
    }
    auto window = std::make_shared<CWindow>(receiver);
    window->thread = &sim::CScheduler::Self();
    window->process = window->thread->context.process;
    window->className = className;
    window->templateNumber = templateNumber;
    windows.Add(window);
    Deliver(*window, {WM_INITDIALOG, 0, 0});
    return window;
}

void DestroyDialogWindow(CWindow& window)
{
    if (window.exists) {
        CheckThread(window);
        window.exists = false;
        Deliver(window, {WM_DESTROY, 0, 0});
    }
}

LRESULT ProcessByDefault(CWindow& window, UINT message, WPARAM /*wParam*/, LPARAM /*lParam*/)
{
    CheckThread(window);
    if (window.receiving == 0) {
        sim::EndProgram("a message is left to the system that nobody has received");
    }
    return message == WM_POWERBROADCAST ? TRUE : 0;
}

BOOL RegisterSessionNotices(CWindow& window)
{
    CheckThread(window);
    if (sim::FailsByFault(Call::kRegisterSessionNotices)) {
        return FALSE;
    }
    window.getsSessionNotices = true;
    return TRUE;
}

BOOL EnableWindowInput(CWindow& window, BOOL enable)
{
    CheckThread(window);
    return std::exchange(window.takesInput, enable != FALSE) ? FALSE : TRUE;
}

int RunMessageLoop(CWindow& window)
{
    CheckThread(window);
    while (window.exists) {
        const CWindow::Message message = sim::Machine().windows.Next(window);
        if (message.number == WM_QUIT) {
            window.exitCode.reset();
            return static_cast<int>(message.wParam);
        }
        Deliver(window, message);
    }
    return std::exchange(window.exitCode, std::nullopt).value_or(0);
}

void EndMessageLoop(CWindow& window, int exitCode)
{
    CheckThread(window);
    window.exitCode = exitCode;
    sim::Machine().windows.Post(window, {WM_QUIT, static_cast<WPARAM>(exitCode), 0});
}

FoundWindowPtr FindWindowOfClass(const wchar_t* className)
{
    const unsigned session = sim::CScheduler::Self().context.process.session;
    const WindowPtr window = sim::Machine().windows.Find(session, className);
    return window == nullptr ? nullptr : std::make_shared<CFoundWindow>(window);
}

BOOL PostToWindow(const FoundWindowPtr& window, UINT message, WPARAM wParam, LPARAM lParam)
{
    const WindowPtr found = window == nullptr ? nullptr : window->Window();
    if (found == nullptr) {
        SetLastErrorCode(ERROR_INVALID_WINDOW_HANDLE);
        return FALSE;
    }
    if (sim::FailsByFault(sim::Call::kPostToWindow)) {
        return FALSE;
    }
    sim::Machine().windows.Post(*found, {message, wParam, lParam});
    return TRUE;
}

} // namespace platform

namespace platform::sim {

bool CMachine::WindowExists(const CString& className, unsigned session) const
{
    return m_state->windows.Find(session, className) != nullptr;
}

std::optional<SimWindow> CMachine::WindowOf(const CString& className, unsigned session) const
{
    const WindowPtr window = m_state->windows.Find(session, className);
    if (window == nullptr) {
        return std::nullopt;
    }
    return SimWindow{window->process.processId, window->templateNumber, window->takesInput, window->getsSessionNotices};
}

std::size_t CMachine::WindowCount() const { return m_state->windows.All().size(); }

BOOL CMachine::OtherProcessPosts(const CString& className, UINT message, WPARAM wParam, LPARAM lParam, unsigned session)
{
    const WindowPtr window = m_state->windows.Find(session, className);
    if (window == nullptr) {
        return FALSE;
    }
    m_state->windows.Post(*window, {message, wParam, lParam});
    return TRUE;
}

void CMachine::NotifyPower(WPARAM event)
{
    for (const WindowPtr& window : m_state->windows.All()) {
        m_state->windows.Post(*window, {WM_POWERBROADCAST, event, 0});
    }
}

void CMachine::NotifySession(unsigned session, WPARAM code)
{
    for (const WindowPtr& window : m_state->windows.All()) {
        if (window->process.session == session && window->getsSessionNotices) {
            m_state->windows.Post(*window, {WM_WTSSESSION_CHANGE, code, static_cast<LPARAM>(session)});
        }
    }
}

} // namespace platform::sim
