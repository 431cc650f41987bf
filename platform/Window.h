// The hidden dialog window of a program, its messages, and the windows of other programs.
//
// A window is found by the name of its class from every process of the session. Messages of the three kinds that the
// program lives by arrive there: what another process posts, what the system tells of the session, what it tells of
// power. On Linux a window is a datagram socket of that name in the session folder, one for each name; session and
// power notices come from the login manager, where there is one, and the signals SIGHUP, SIGINT and SIGTERM count as
// WM_QUIT (SIGHUP not where the program was started to ignore it, as by nohup).
#pragma once

#include "platform/Types.h"

#include <memory>

namespace platform {

// --- The program's own window. All of it belongs to the thread that creates the window.

class CWindow;
using WindowPtr = std::shared_ptr<CWindow>;

// Gets a window's messages.
class CMessageReceiver {
public:
    virtual ~CMessageReceiver() = default;
    // One message; what it carries depends on its number. The result is the message's. WM_INITDIALOG comes first, when
    // the window has been made but CreateDialogWindow has not returned yet, WM_DESTROY near the end. Must not throw.
    virtual LRESULT ReceiveMessage(CWindow& window, UINT message, WPARAM wParam, LPARAM lParam) = 0;
};

// Makes the common controls of these kinds usable (ICC_... bits). Nothing to do off Windows. FALSE on failure.
BOOL InitializeControls(DWORD kinds);

// Registers the class of the program's dialog: the system's dialog class, "#32770", under another name. Again: nothing
// changes. FALSE, with the last error set, on failure.
BOOL RegisterDialogClass(const wchar_t* className);

// Makes the modeless dialog of a template of the program's resources, not visible, and gives it WM_INITDIALOG.
// className: the class that the template names, which has to be registered. receiver: must outlive the window.
// Null, with the last error set, on failure: 1407 when the class is not registered; on Linux 183 when another process
// of the session has a window of this class, 5 when the session folder is not the user's own, and the reason of the
// failure is also written to standard error.
WindowPtr CreateDialogWindow(WORD templateNumber, const wchar_t* className, CMessageReceiver& receiver);

// Gives the window WM_DESTROY and takes it away; nobody finds it any more. Nothing happens when that has been done.
// Letting go of the last reference does it, too.
void DestroyDialogWindow(CWindow& window);

// What the system does with a message that the receiver leaves to it; the message's result. Only inside ReceiveMessage.
LRESULT ProcessByDefault(CWindow& window, UINT message, WPARAM wParam, LPARAM lParam);

// Asks for WM_WTSSESSION_CHANGE about this session, until the window is destroyed: wParam is the code, lParam the
// session's number (0 where it has none). Power notices come unasked: WM_POWERBROADCAST, wParam is the event.
// FALSE on failure; without a login manager there are no notices, which is not a failure.
BOOL RegisterSessionNotices(CWindow& window);

// Lets the window take the user's input or not. Whether it did not before.
BOOL EnableWindowInput(CWindow& window, BOOL enable);

// Hands the thread's messages to the window until WM_QUIT has come or the window has been destroyed, without waking up
// in between. Returns what WM_QUIT carries as its wParam; for a destroyed window what EndMessageLoop was given before
// that, else 0.
int RunMessageLoop(CWindow& window);

// Lets RunMessageLoop return exitCode when it has handled the messages that are there already.
void EndMessageLoop(CWindow& window, int exitCode);

// --- Other programs' windows. Any thread.

class CFoundWindow;
using FoundWindowPtr = std::shared_ptr<CFoundWindow>;

// The window of this class in the session, visible or not, in whatever process; null when there is none.
FoundWindowPtr FindWindowOfClass(const wchar_t* className);

// Puts a message into the queue of the window's thread and returns. FALSE, with the last error set (1400 when the
// window is gone or null), on failure, such as a full queue; on Linux the reason is also written to
// standard error. Numbers only: a pointer means nothing to another process.
BOOL PostToWindow(const FoundWindowPtr& window, UINT message, WPARAM wParam, LPARAM lParam);

} // namespace platform
