#include "platform/Terminal.h"

#include <cstdio>
#include <fcntl.h>
#include <io.h>

namespace platform {

namespace {

HANDLE OutputHandle() { return ::GetStdHandle(STD_OUTPUT_HANDLE); }

} // namespace

CTerminal::CTerminal()
{
    ::_setmode(::_fileno(stdout), _O_BINARY);
    DWORD mode = 0;
    if (!::GetConsoleMode(OutputHandle(), &mode)) {
        return;
    }
    m_mode = mode;
    m_codePage = ::GetConsoleOutputCP();
    ::SetConsoleOutputCP(CP_UTF8);
    // NO_COLOR counts when it is not empty: with a buffer of no size its length comes back, the zero included.
    const bool isRefused = ::GetEnvironmentVariableW(L"NO_COLOR", nullptr, 0) > 1;
    m_takesSequences = ::SetConsoleMode(OutputHandle(), mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
    m_allowsColour = m_takesSequences && !isRefused;
}

CTerminal::~CTerminal()
{
    if (m_codePage != 0) {
        ::SetConsoleMode(OutputHandle(), m_mode);
        ::SetConsoleOutputCP(m_codePage);
    }
}

int CTerminal::Columns() const
{
    CONSOLE_SCREEN_BUFFER_INFO info{};
    return ::GetConsoleScreenBufferInfo(OutputHandle(), &info) ? info.srWindow.Right - info.srWindow.Left + 1 : 0;
}

bool CTerminal::AllowsColour() const { return m_allowsColour; }

bool CTerminal::ShowsUnicode() const { return m_codePage == 0 || ::GetConsoleOutputCP() == CP_UTF8; }

} // namespace platform
