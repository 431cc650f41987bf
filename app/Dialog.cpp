#include "app/Dialog.h"

#include <utility>

CDialog::CDialog(WORD templateNumber, const wchar_t* className)
    : m_templateNumber(templateNumber), m_className(className)
{
}

CDialog::~CDialog() = default;

BOOL CDialog::Create()
{
    m_ownWindow = platform::CreateDialogWindow(m_templateNumber, m_className, *this);
    return m_ownWindow ? TRUE : FALSE;
}

std::optional<int> CDialog::DoModal()
{
    if (!Create()) {
        return std::nullopt;
    }
    const int result = platform::RunMessageLoop(*m_ownWindow);
    platform::DestroyDialogWindow(*m_ownWindow);
    return result;
}

void CDialog::BeginModalState() { platform::EnableWindowInput(Window(), FALSE); }

void CDialog::EndModalState() { platform::EnableWindowInput(Window(), TRUE); }

LRESULT CDialog::ReceiveMessage(platform::CWindow& window, UINT message, WPARAM wParam, LPARAM lParam)
{
    m_window = &window;
    // Handling a message may send another one.
    const Message outer = std::exchange(m_message, {message, wParam, lParam});
    LRESULT result = 0;
    try {
        result = WindowProc(message, wParam, lParam);
    } catch (...) {
        result = Default();
    }
    m_message = outer;
    return result;
}

LRESULT CDialog::WindowProc(UINT message, WPARAM /*wParam*/, LPARAM /*lParam*/)
{
    switch (message) {
    case WM_INITDIALOG:
        return OnInitDialog();
    case WM_DESTROY:
        OnDestroy();
        return 0;
    case WM_CLOSE:
        platform::EndMessageLoop(Window(), 0);
        return 0;
    default:
        return Default();
    }
}

BOOL CDialog::OnInitDialog() { return TRUE; }

void CDialog::OnDestroy() { Default(); }

LRESULT CDialog::Default()
{
    return platform::ProcessByDefault(Window(), m_message.number, m_message.wParam, m_message.lParam);
}
