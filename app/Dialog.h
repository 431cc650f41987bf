// The frame of a dialog without controls.
#pragma once

#include "platform/Window.h"

// A dialog of the program's resources. All of it belongs to the thread that makes its window.
class CDialog : private platform::CMessageReceiver {
public:
    // templateNumber: of the resources; className: the window class that the template names, a literal.
    CDialog(WORD templateNumber, const wchar_t* className);
    ~CDialog() override;
    CDialog(const CDialog&) = delete;
    CDialog& operator=(const CDialog&) = delete;

    // Makes the window, not visible, and runs OnInitDialog. FALSE, with the last error set, on failure.
    virtual BOOL Create();
    // Makes the window, handles its messages until WM_QUIT or WM_CLOSE, and destroys it. What WM_QUIT carries as its
    // wParam, 0 after WM_CLOSE; -1 when the window could not be made.
    int DoModal();

    // Keeps the user's input from the window while it has a modal dialog of its own; lets it in again.
    virtual void BeginModalState();
    virtual void EndModalState();

protected:
    // One message; what it returns is the message's result. An exception leaves the message to default processing.
    virtual LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam);
    // The window has been made. TRUE: the system may set the input focus.
    virtual BOOL OnInitDialog();
    // The window is about to go.
    virtual void OnDestroy();

    // Default processing of the message that is being handled; the message's result.
    LRESULT Default();
    // The window; only while it exists.
    platform::CWindow& Window() const { return *m_window; }

private:
    struct Message {
        UINT number = 0;
        WPARAM wParam = 0;
        LPARAM lParam = 0;
    };
    LRESULT ReceiveMessage(platform::CWindow& window, UINT message, WPARAM wParam, LPARAM lParam) override;

    const WORD m_templateNumber;
    const wchar_t* const m_className;
    platform::WindowPtr m_ownWindow;       // null until it has been made
    platform::CWindow* m_window = nullptr; // known from the first message on
    Message m_message;                     // that is being handled
};
