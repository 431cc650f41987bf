#include "platform/Window.h"

#include <commctrl.h>
#include <utility>
#include <wtsapi32.h>

namespace platform {

class CWindow : public std::enable_shared_from_this<CWindow> {
public:
    explicit CWindow(CMessageReceiver& receiver) : m_receiver(receiver) {}
    ~CWindow() { DestroyDialogWindow(*this); }
    CWindow(const CWindow&) = delete;
    CWindow& operator=(const CWindow&) = delete;

    CMessageReceiver& m_receiver;
    HWND m_handle = nullptr;      // null before WM_INITDIALOG and after the window's end
    WNDPROC m_previous = nullptr; // the class's own procedure
    bool m_isDestroyed = false;   // or being so
};

class CFoundWindow {
public:
    HWND m_handle = nullptr;
};

namespace {

HINSTANCE ProgramInstance() { return ::GetModuleHandleW(nullptr); }

CWindow* WindowOf(HWND handle)
{
    const LONG_PTR own = ::GetWindowLongPtrW(handle, DWLP_USER);
    return reinterpret_cast<CWindow*>(own); // NOLINT(performance-no-int-to-ptr): the system keeps it as an integer
}

// The last message of all: the window is forgotten, and its message loop looks at that.
LRESULT ForgetWindow(CWindow* window, WPARAM wParam, LPARAM lParam)
{
    const auto handle = std::exchange(window->m_handle, nullptr);
    ::SetWindowLongPtrW(handle, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(window->m_previous));
    // What another thread sends is handled inside GetMessageW, which returns for a posted message only.
    ::PostThreadMessageW(::GetCurrentThreadId(), WM_NULL, 0, 0);
    return ::CallWindowProcW(window->m_previous, handle, WM_NCDESTROY, wParam, lParam);
}

// The window's procedure from WM_INITDIALOG on. The system's dialog procedure could neither be called in the middle nor
// hand through every result.
LRESULT CALLBACK ReceiveWindowMessage(HWND handle, UINT message, WPARAM wParam, LPARAM lParam)
{
    CWindow* const window = WindowOf(handle);
    if (message == WM_NCDESTROY) {
        return ForgetWindow(window, wParam, lParam);
    }
    return window->m_receiver.ReceiveMessage(*window, message, wParam, lParam);
}

// The dialog procedure. The system calls it for whatever reaches the class's procedure, which leaves to the system what
// this leaves to it.
INT_PTR CALLBACK ReceiveDialogMessage(HWND handle, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (message != WM_INITDIALOG || WindowOf(handle)) { // the receiver has had it and gives it to the system
        return FALSE;
    }
    // NOLINTNEXTLINE(performance-no-int-to-ptr): what CreateDialogWindow handed over travels as an integer
    auto* const window = reinterpret_cast<CWindow*>(lParam);
    window->m_handle = handle;
    ::SetWindowLongPtrW(handle, DWLP_USER, lParam);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the system gives a procedure out as an integer
    window->m_previous = reinterpret_cast<WNDPROC>(
        ::SetWindowLongPtrW(handle, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(ReceiveWindowMessage)));
    return window->m_receiver.ReceiveMessage(*window, message, wParam, 0);
}

} // namespace

BOOL InitializeControls(DWORD kinds)
{
    const INITCOMMONCONTROLSEX controls = {sizeof(controls), kinds};
    static_assert(sizeof(controls) == 8);
    return ::InitCommonControlsEx(&controls);
}

BOOL RegisterDialogClass(const wchar_t* className)
{
    WNDCLASSW dialogClass = {};
    if (!::GetClassInfoW(ProgramInstance(), L"#32770", &dialogClass)) {
        return FALSE;
    }
    dialogClass.hInstance = ProgramInstance(); // the system's class is nobody's or the system library's
    dialogClass.lpszClassName = className;
    return ::RegisterClassW(&dialogClass) != 0 || ::GetLastError() == ERROR_CLASS_ALREADY_EXISTS;
}

WindowPtr CreateDialogWindow(WORD templateNumber, const wchar_t* className, CMessageReceiver& receiver)
{
    WNDCLASSW registered = {};
    if (!::GetClassInfoW(ProgramInstance(), className, &registered)) {
        ::SetLastError(ERROR_CANNOT_FIND_WND_CLASS); // wine has another code for it
        return nullptr;
    }
    auto window = std::make_shared<CWindow>(receiver);
    const auto handle = ::CreateDialogParamW(ProgramInstance(), MAKEINTRESOURCEW(templateNumber), nullptr,
                                             ReceiveDialogMessage, reinterpret_cast<LPARAM>(window.get()));
    return handle ? window : nullptr;
}

void DestroyDialogWindow(CWindow& window)
{
    if (!window.m_handle || std::exchange(window.m_isDestroyed, true)) {
        return;
    }
    // The receiver may let go of the last reference meanwhile.
    const WindowPtr alive = window.weak_from_this().lock();
    ::DestroyWindow(window.m_handle);
}

LRESULT ProcessByDefault(CWindow& window, UINT message, WPARAM wParam, LPARAM lParam)
{
    return ::CallWindowProcW(window.m_previous, window.m_handle, message, wParam, lParam);
}

BOOL RegisterSessionNotices(CWindow& window)
{
    return ::WTSRegisterSessionNotification(window.m_handle, NOTIFY_FOR_THIS_SESSION);
}

BOOL EnableWindowInput(CWindow& window, BOOL enable) { return ::EnableWindow(window.m_handle, enable); }

int RunMessageLoop(CWindow& window)
{
    MSG message = {};
    while (window.m_handle) {
        if (::GetMessageW(&message, nullptr, 0, 0) <= 0) {
            return static_cast<int>(message.wParam);
        }
        if (!::IsDialogMessageW(window.m_handle, &message)) {
            ::DispatchMessageW(&message);
        }
    }
    // A WM_QUIT that came with the window's end must not end the thread's next loop.
    return ::PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE) ? static_cast<int>(message.wParam) : 0;
}

void EndMessageLoop(CWindow&, int exitCode) { ::PostQuitMessage(exitCode); }

FoundWindowPtr FindWindowOfClass(const wchar_t* className)
{
    const auto handle = ::FindWindowW(className, nullptr);
    return handle ? std::make_shared<CFoundWindow>(CFoundWindow{handle}) : nullptr;
}

BOOL PostToWindow(const FoundWindowPtr& window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (!window) {
        ::SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return FALSE;
    }
    return ::PostMessageW(window->m_handle, message, wParam, lParam);
}

} // namespace platform
