// What only Windows shows of the program's window.
#include "platform/Window.h"

#include <array>
#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <thread>

namespace platform {
namespace {

using ::testing::Contains;
using ::testing::Key;
using ::testing::Not;

// One of TestDialogs.rc.
constexpr WORD kTemplate = 104;
constexpr wchar_t kClassName[] = L"AmporaWindowTest";

CString ClassNameOf(HWND handle)
{
    std::array<wchar_t, 64> name = {};
    ::GetClassNameW(handle, name.data(), static_cast<int>(name.size()));
    return name.data();
}

// The window of the class that the calling thread has; null when there is none.
HWND OwnWindow()
{
    HWND found = nullptr;
    ::EnumThreadWindows(
        ::GetCurrentThreadId(),
        [](HWND handle, LPARAM result) -> BOOL {
            if (ClassNameOf(handle) != kClassName) {
                return TRUE;
            }
            *reinterpret_cast<HWND*>(result) = handle;
            return FALSE;
        },
        reinterpret_cast<LPARAM>(&found));
    return found;
}

// Handles some messages in its own way, leaves the others to the system, and looks at the window at each.
class CReceiver : public CMessageReceiver {
public:
    using Handler = std::function<LRESULT(CWindow& window, WPARAM wParam, LPARAM lParam)>;

    LRESULT ReceiveMessage(CWindow& window, UINT message, WPARAM wParam, LPARAM lParam) override
    {
        ++m_counts[message];
        m_wasVisible = m_wasVisible || ::IsWindowVisible(OwnWindow());
        const auto handler = m_handlers.find(message);
        return handler != m_handlers.end() ? handler->second(window, wParam, lParam)
                                           : ProcessByDefault(window, message, wParam, lParam);
    }

    std::map<UINT, Handler> m_handlers;
    std::map<UINT, int> m_counts; // messages received
    bool m_wasVisible = false;
};

class Window : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(RegisterDialogClass(kClassName)); }

    void Create()
    {
        m_window = CreateDialogWindow(kTemplate, kClassName, m_receiver);
        ASSERT_NE(m_window, nullptr) << ::GetLastError();
        m_handle = OwnWindow();
        ASSERT_NE(m_handle, nullptr);
    }

    // Runs the message loop while another thread works; what the loop returns. The loop ends with the work if nothing
    // else ends it.
    int RunLoopDuring(const std::function<void()>& work)
    {
        std::thread outside([&] {
            work();
            ::PostMessageW(m_handle, WM_QUIT, 0, 0);
        });
        const int result = RunMessageLoop(*m_window);
        outside.join();
        return result;
    }

    CReceiver m_receiver;
    WindowPtr m_window;
    HWND m_handle = nullptr;
};

// Shows the window in the ways that another process has, and whether it could be seen between them.
bool ShowsWindow(HWND handle)
{
    ::ShowWindow(handle, SW_SHOW);
    bool wasVisible = ::IsWindowVisible(handle);
    ::SetWindowPos(handle, HWND_TOP, 0, 0, 100, 100, SWP_SHOWWINDOW);
    wasVisible = wasVisible || ::IsWindowVisible(handle);
    ::ShowWindow(handle, SW_RESTORE);
    return wasVisible || ::IsWindowVisible(handle);
}

TEST_F(Window, StaysHiddenWhenItsReceiverClearsTheFlag)
{
    int asked = 0;
    m_receiver.m_handlers[WM_WINDOWPOSCHANGING] = [&](CWindow& window, WPARAM wParam, LPARAM lParam) {
        auto* const position = reinterpret_cast<WINDOWPOS*>(lParam);
        asked += (position->flags & SWP_SHOWWINDOW) != 0 ? 1 : 0;
        position->flags &= ~static_cast<UINT>(SWP_SHOWWINDOW);
        return ProcessByDefault(window, WM_WINDOWPOSCHANGING, wParam, lParam);
    };
    Create();
    bool wasVisible = false;
    RunLoopDuring([&] { wasVisible = ShowsWindow(m_handle); });
    DestroyDialogWindow(*m_window);
    EXPECT_FALSE(wasVisible);
    EXPECT_FALSE(m_receiver.m_wasVisible);
    EXPECT_GE(asked, 3);
}

TEST_F(Window, CanBeShownWhenItsReceiverLeavesTheFlag)
{
    Create();
    EXPECT_FALSE(m_receiver.m_wasVisible);
    bool wasVisible = false;
    RunLoopDuring([&] { wasVisible = ShowsWindow(m_handle); });
    DestroyDialogWindow(*m_window);
    EXPECT_TRUE(wasVisible);
    EXPECT_TRUE(m_receiver.m_wasVisible);
}

TEST_F(Window, HasAClassThatDiffersFromTheSystemsInItsName)
{
    WNDCLASSW systems = {};
    ASSERT_TRUE(::GetClassInfoW(nullptr, L"#32770", &systems));
    WNDCLASSW own = {};
    ASSERT_TRUE(::GetClassInfoW(::GetModuleHandleW(nullptr), kClassName, &own));
    EXPECT_EQ(own.style, systems.style & ~static_cast<UINT>(CS_GLOBALCLASS));
    EXPECT_EQ(own.lpfnWndProc, systems.lpfnWndProc);
    EXPECT_EQ(own.cbClsExtra, systems.cbClsExtra);
    EXPECT_EQ(own.cbWndExtra, systems.cbWndExtra);
    EXPECT_GE(own.cbWndExtra, DLGWINDOWEXTRA);
    EXPECT_EQ(own.hIcon, systems.hIcon);
    EXPECT_EQ(own.hCursor, systems.hCursor);
    EXPECT_EQ(own.hbrBackground, systems.hbrBackground);
    EXPECT_EQ(own.lpszMenuName, systems.lpszMenuName);
}

TEST_F(Window, IsOfTheClassAndStyleOfItsTemplate)
{
    Create();
    EXPECT_EQ(ClassNameOf(m_handle), kClassName);
    const auto style = static_cast<DWORD>(::GetWindowLongPtrW(m_handle, GWL_STYLE));
    const DWORD wanted = WS_POPUP | DS_MODALFRAME | DS_SETFONT;
    EXPECT_EQ(style & wanted, wanted);
    EXPECT_EQ(style & (WS_VISIBLE | WS_CHILD | WS_CAPTION | WS_SYSMENU | WS_THICKFRAME | WS_DISABLED), 0U);
    const auto extended = static_cast<DWORD>(::GetWindowLongPtrW(m_handle, GWL_EXSTYLE));
    const DWORD wantedExtended = WS_EX_NOACTIVATE | WS_EX_LAYERED;
    EXPECT_EQ(extended & wantedExtended, wantedExtended);
    EXPECT_EQ(extended & (WS_EX_APPWINDOW | WS_EX_TOPMOST), 0U);
    EXPECT_EQ(::GetWindowTextLengthW(m_handle), 0);
    EXPECT_EQ(::GetWindow(m_handle, GW_CHILD), nullptr);
    EXPECT_EQ(::GetWindow(m_handle, GW_OWNER), nullptr);
}

TEST_F(Window, GivesASenderTheReceiversResult)
{
    m_receiver.m_handlers[WM_POWERBROADCAST] = [](CWindow&, WPARAM event, LPARAM) {
        return static_cast<LRESULT>(event + 1000);
    };
    Create();
    LRESULT results[2] = {};
    RunLoopDuring([&] {
        results[0] = ::SendMessageW(m_handle, WM_POWERBROADCAST, PBT_APMSUSPEND, 0);
        results[1] = ::SendMessageW(m_handle, WM_POWERBROADCAST, PBT_APMRESUMEAUTOMATIC, 0);
    });
    EXPECT_EQ(results[0], 1004);
    EXPECT_EQ(results[1], 1018);
}

TEST_F(Window, LeavesTheFirstMessageToTheSystemToo)
{
    LRESULT result = -1;
    m_receiver.m_handlers[WM_INITDIALOG] = [&](CWindow& window, WPARAM wParam, LPARAM lParam) {
        result = ProcessByDefault(window, WM_INITDIALOG, wParam, lParam);
        return TRUE;
    };
    Create();
    EXPECT_EQ(m_receiver.m_counts[WM_INITDIALOG], 1);
    EXPECT_EQ(result, 0);
}

TEST_F(Window, EndsItsLoopWhenASentMessageDestroysIt)
{
    m_receiver.m_handlers[WM_CLOSE] = [](CWindow& window, WPARAM, LPARAM) {
        DestroyDialogWindow(window);
        return 0;
    };
    Create();
    EXPECT_EQ(RunLoopDuring([&] { ::SendMessageW(m_handle, WM_CLOSE, 0, 0); }), 0);
    EXPECT_FALSE(::IsWindow(m_handle));
    EXPECT_EQ(m_receiver.m_counts[WM_DESTROY], 1);
}

TEST_F(Window, LeavesNoQuitToTheThreadsNextLoop)
{
    m_receiver.m_handlers[WM_CLOSE] = [](CWindow& window, WPARAM, LPARAM) {
        EndMessageLoop(window, 9);
        DestroyDialogWindow(window);
        return 0;
    };
    Create();
    EXPECT_EQ(RunLoopDuring([&] { ::SendMessageW(m_handle, WM_CLOSE, 0, 0); }), 9);
    MSG message = {};
    EXPECT_FALSE(::PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
}

TEST_F(Window, MayLoseItsLastReferenceInTheMiddleOfAMessage)
{
    m_receiver.m_handlers[WM_CLOSE] = [&](CWindow&, WPARAM, LPARAM) -> LRESULT {
        m_window.reset();
        return 5;
    };
    Create();
    EXPECT_EQ(::SendMessageW(m_handle, WM_CLOSE, 0, 0), 5);
    EXPECT_FALSE(::IsWindow(m_handle));
    EXPECT_EQ(m_receiver.m_counts[WM_DESTROY], 1);
}

TEST_F(Window, MayLoseItsLastReferenceWhileItIsDestroyed)
{
    std::weak_ptr<CWindow> window;
    bool lived = false;
    m_receiver.m_handlers[WM_DESTROY] = [&](CWindow&, WPARAM, LPARAM) {
        m_window.reset();
        lived = !window.expired();
        return 0;
    };
    Create();
    window = m_window;
    DestroyDialogWindow(*m_window);
    EXPECT_TRUE(lived) << "the system is not done with it";
    EXPECT_TRUE(window.expired());
    EXPECT_FALSE(::IsWindow(m_handle));
    EXPECT_EQ(m_receiver.m_counts[WM_DESTROY], 1);
    EXPECT_THAT(m_receiver.m_counts, Not(Contains(Key(WM_NCDESTROY))));
}

} // namespace
} // namespace platform
