#include "platform/Window.h"

#include "platform/LastError.h"
#include "platform/linux/ErrorCode.h"
#include "platform/linux/LoginMonitor.h"
#include "platform/linux/MessageSocket.h"
#include "platform/linux/NamedFile.h"
#include "platform/linux/SessionFolder.h"
#include "platform/linux/SignalBlock.h"
#include "platform/linux/UserMessage.h"
#include "platform/Pause.h"
#include "platform/Text.h"

#include <array>
#include <cerrno>
#include <optional>
#include <set>
#include <sys/signalfd.h>
#include <system_error>
#include <utility>

namespace platform {

namespace {

// A wait that keeps failing must not spin.
constexpr DWORD kFailedWaitPauseMs = 1000;

// The signals that ask a program to end. A hangup that it was started to ignore (nohup) stays ignored; a descriptor
// would get it all the same.
sigset_t EndSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    struct sigaction hangup = {};
    if (::sigaction(SIGHUP, nullptr, &hangup) != 0 || hangup.sa_handler != SIG_IGN) {
        sigaddset(&signals, SIGHUP);
    }
    return signals;
}

// As long as it lives, those signals wait here instead of ending the program.
class CEndSignals {
public:
    CEndSignals() : m_signals(EndSignals()), m_block(m_signals), m_descriptor(Open(m_signals)) {}
    ~CEndSignals()
    {
        // One that came late has had its will.
        while (Take()) {
        }
    }
    CEndSignals(const CEndSignals&) = delete;
    CEndSignals& operator=(const CEndSignals&) = delete;

    // Readable while signals are waiting; -1, with errno set by the constructor, when it cannot be made.
    int Descriptor() const { return m_descriptor.Get(); }
    // Takes one that is waiting. False when there is none.
    bool Take()
    {
        signalfd_siginfo signal = {};
        return ::read(m_descriptor.Get(), &signal, sizeof(signal)) == sizeof(signal);
    }

private:
    static linux::CFileDescriptor Open(const sigset_t& signals)
    {
        return linux::CFileDescriptor(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    }

    sigset_t m_signals;
    linux::CSignalBlock m_block;
    linux::CFileDescriptor m_descriptor;
};

// Everything that a window hears; goes with the window.
struct Channels {
    linux::CMessageSocket socket;
    CEndSignals signals;
    linux::CLoginMonitor login;
};

} // namespace

class CWindow : public std::enable_shared_from_this<CWindow> {
public:
    explicit CWindow(CMessageReceiver& receiver) : m_receiver(receiver) {}
    ~CWindow() { Destroy(); }
    CWindow(const CWindow&) = delete;
    CWindow& operator=(const CWindow&) = delete;

    // False, with errno set, on failure.
    bool Create(const std::string& name);
    void Destroy();
    int RunLoop();

    std::optional<Channels> m_channels; // none before its creation and after its end
    std::optional<int> m_exitCode;      // the loop is to end
    bool m_takesInput = true;

private:
    void Give(UINT message, WPARAM wParam, LPARAM lParam) { m_receiver.ReceiveMessage(*this, message, wParam, lParam); }
    void Sleep();
    void GiveLoginNotices();
    void GivePosted(const linux::PostedMessage& posted);

    CMessageReceiver& m_receiver;
    bool m_isDestroyed = false; // or being so
};

bool CWindow::Create(const std::string& name)
{
    m_channels.emplace();
    if (m_channels->signals.Descriptor() < 0 || !m_channels->socket.Bind(name)) {
        const int error = errno;
        m_channels.reset();
        errno = error;
        return false;
    }
    m_channels->login.Connect();
    Give(WM_INITDIALOG, 0, 0);
    return true;
}

void CWindow::Destroy()
{
    if (!m_channels || std::exchange(m_isDestroyed, true)) {
        return;
    }
    // The receiver may let go of the last reference meanwhile.
    const WindowPtr alive = weak_from_this().lock();
    Give(WM_DESTROY, 0, 0);
    m_channels.reset();
}

int CWindow::RunLoop()
{
    while (m_channels) {
        Sleep();
        if (m_channels->signals.Take()) {
            m_exitCode = 0;
            break;
        }
        GiveLoginNotices();
        const auto posted = m_channels ? m_channels->socket.Receive() : std::nullopt;
        if (!posted && m_exitCode) {
            break;
        }
        if (posted && posted->message == WM_QUIT) {
            m_exitCode = static_cast<int>(posted->wParam);
            break;
        }
        if (posted) {
            GivePosted(*posted);
        }
    }
    return std::exchange(m_exitCode, std::nullopt).value_or(0);
}

// Until something is due, which is at once when the loop is to end.
void CWindow::Sleep()
{
    linux::Deadline deadline;
    if (m_exitCode) {
        deadline = std::chrono::steady_clock::time_point();
    }
    std::array<pollfd, 3> channels = {{{m_channels->socket.Descriptor(), POLLIN, 0},
                                       {m_channels->signals.Descriptor(), POLLIN, 0},
                                       m_channels->login.Watch(&deadline)}};
    if (!linux::Poll(channels, deadline)) {
        Pause(kFailedWaitPauseMs); // then whatever has come is found without the wait
    }
}

void CWindow::GiveLoginNotices()
{
    for (const linux::LoginNotice& notice : m_channels->login.Process()) {
        if (m_channels) {
            Give(notice.message, notice.wParam, notice.lParam);
        }
    }
}

void CWindow::GivePosted(const linux::PostedMessage& posted)
{
    // What it points to would lie in another process.
    if (posted.message != WM_WINDOWPOSCHANGING) {
        Give(static_cast<UINT>(posted.message), posted.wParam, posted.lParam);
    }
}

class CFoundWindow {
public:
    explicit CFoundWindow(linux::CFileDescriptor socket) : m_socket(std::move(socket)) {}

    linux::CFileDescriptor m_socket;
};

namespace {

// Those that are registered.
std::set<CString>& ClassNames()
{
    static std::set<CString> names;
    return names;
}

// Why a window of a class that is registered could not be made.
std::string ReasonOf(int error)
{
    switch (error) {
    case EEXIST:
        return "another process of the session has it";
    case ENOTSOCK:
        return "something else has this name";
    case EACCES:
        return "the folder is not the user's own, or not the user's alone";
    case ETIMEDOUT:
        return "another program has locked the folder";
    default:
        return std::generic_category().message(error);
    }
}

// Fails, and tells the user, too: without a window the program does not run, whatever its trace level is.
WindowPtr FailToCreate(const CString& className, DWORD code, const std::string& reason)
{
    linux::TellUser("cannot make the window \"" + EncodeUtf8(className) + "\" in " + linux::SessionFolderPath() + ": " +
                    reason);
    SetLastErrorCode(code);
    return nullptr;
}

} // namespace

BOOL InitializeControls(DWORD) { return TRUE; }

BOOL RegisterDialogClass(const wchar_t* className)
{
    ClassNames().insert(className);
    return TRUE;
}

WindowPtr CreateDialogWindow(WORD, const wchar_t* className, CMessageReceiver& receiver)
{
    if (!ClassNames().contains(className)) {
        return FailToCreate(className, ERROR_CANNOT_FIND_WND_CLASS, "its class is not registered");
    }
    auto window = std::make_shared<CWindow>(receiver);
    if (!window->Create(linux::FileNameOf(className))) {
        const int error = errno;
        return FailToCreate(className, error == ENOTSOCK ? ERROR_INVALID_HANDLE : linux::ErrorCodeOf(error),
                            ReasonOf(error));
    }
    return window;
}

void DestroyDialogWindow(CWindow& window) { window.Destroy(); }

LRESULT ProcessByDefault(CWindow&, UINT message, WPARAM, LPARAM) { return message == WM_POWERBROADCAST ? TRUE : 0; }

BOOL RegisterSessionNotices(CWindow& window)
{
    if (!window.m_channels) {
        SetLastErrorCode(ERROR_INVALID_WINDOW_HANDLE);
        return FALSE;
    }
    window.m_channels->login.WatchSession();
    return TRUE;
}

BOOL EnableWindowInput(CWindow& window, BOOL enable)
{
    return std::exchange(window.m_takesInput, enable != FALSE) ? FALSE : TRUE;
}

int RunMessageLoop(CWindow& window) { return window.RunLoop(); }

void EndMessageLoop(CWindow& window, int exitCode) { window.m_exitCode = exitCode; }

FoundWindowPtr FindWindowOfClass(const wchar_t* className)
{
    linux::CFileDescriptor socket = linux::ConnectMessageSocket(linux::FileNameOf(className));
    return socket ? std::make_shared<CFoundWindow>(std::move(socket)) : nullptr;
}

BOOL PostToWindow(const FoundWindowPtr& window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (!window) {
        SetLastErrorCode(ERROR_INVALID_WINDOW_HANDLE);
        return FALSE;
    }
    if (!linux::SendMessageTo(window->m_socket, {message, wParam, lParam})) {
        const int error = errno;
        const bool isGone = error == ECONNREFUSED || error == ENOTCONN;
        linux::TellUser(std::string("cannot post to the window: ") +
                        (error == EAGAIN ? "it takes no more messages" : std::generic_category().message(error)));
        SetLastErrorCode(isGone ? ERROR_INVALID_WINDOW_HANDLE : linux::ErrorCodeOf(error));
        return FALSE;
    }
    return TRUE;
}

} // namespace platform
