// The frame of a dialog without controls.
#pragma once

#include "platform/Window.h"

#include <optional>

// A dialog of the program's resources. Only for the thread that creates its window.
class CDialog : private platform::CMessageReceiver {
public:
    // templateNumber: of the resources; className: the window class that the template names, a literal.
    CDialog(WORD templateNumber, const wchar_t* className);
    ~CDialog() override;
    CDialog(const CDialog&) = delete;
    CDialog& operator=(const CDialog&) = delete;

    // Creates the window, hidden, and runs OnInitDialog. FALSE, with the last error set, on failure.
    virtual BOOL Create();
    // Creates the window, handles its messages until WM_QUIT or WM_CLOSE, and destroys it. Returns the wParam of
    // WM_QUIT, 0 after WM_CLOSE, nothing when the window cannot be created.
    std::optional<int> DoModal();

    // Disables the window's input while it has a modal dialog of its own, and enables it again.
    virtual void BeginModalState();
    virtual void EndModalState();

protected:
    // Handles one message; returns the message's result. After an exception the message gets default processing.
    virtual LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam);
    // The window has been created. TRUE: the system may set the input focus.
    virtual BOOL OnInitDialog();
    // The window is about to be destroyed.
    virtual void OnDestroy();

    // Default processing of the current message; returns the message's result.
    LRESULT Default();
    // The window; only while it exists.
    platform::CWindow& Window() const { return *m_window; }

private:
    struct Message {
        UINT number;
        WPARAM wParam;
        LPARAM lParam;
    };
    LRESULT ReceiveMessage(platform::CWindow& window, UINT message, WPARAM wParam, LPARAM lParam) override;

    const WORD m_templateNumber;
    const wchar_t* const m_className;
    platform::WindowPtr m_ownWindow;       // null until it is created
    platform::CWindow* m_window = nullptr; // set by the first message
    Message m_message{};                   // the current one
};
