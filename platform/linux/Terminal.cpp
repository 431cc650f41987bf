#include "platform/Terminal.h"

#include <cstdlib>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

namespace platform {

namespace {

std::string_view Variable(const char* name)
{
    const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nobody changes it
    return value == nullptr ? std::string_view() : value;
}

constexpr int kUsualColumns = 80; // where a terminal does not know its width

} // namespace

CTerminal::CTerminal()
    : m_takesSequences(::isatty(STDOUT_FILENO) == 1 && Variable("TERM") != "dumb"),
      m_allowsColour(m_takesSequences && Variable("NO_COLOR").empty())
{
}

CTerminal::~CTerminal() = default;

int CTerminal::Columns() const
{
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) {
        return 0;
    }
    return size.ws_col == 0 ? kUsualColumns : size.ws_col;
}

bool CTerminal::AllowsColour() const { return m_allowsColour; }

bool CTerminal::ShowsUnicode() const
{
    if (::isatty(STDOUT_FILENO) != 1) {
        return true;
    }
    // The first that is not empty names the locale of characters.
    for (const char* const name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const std::string_view locale = Variable(name);
        if (!locale.empty()) {
            return locale.find("UTF-8") != locale.npos || locale.find("utf8") != locale.npos;
        }
    }
    return false;
}

} // namespace platform
