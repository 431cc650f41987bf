// The terminal that shows standard output, where one does.
#pragma once

#include "platform/Types.h"

namespace platform {

// Prepares the terminal of standard output for UTF-8 and colours, and puts it back at its end. What the C++ library
// writes to standard output after that arrives byte for byte, in a file or a pipe as well: no line end is changed. One
// in a process at a time; belongs to the thread that makes it. Nothing fails: what cannot be found out counts as
// absent.
class CTerminal {
public:
    CTerminal();
    ~CTerminal(); // NOLINT(performance-trivially-destructible): some systems have something to put back
    CTerminal(const CTerminal&) = delete;
    CTerminal& operator=(const CTerminal&) = delete;

    // Its present width in characters; 0 when standard output is no terminal.
    int Columns() const;
    // Whether it obeys the escape sequences of ECMA-48, such as those that clear it.
    bool TakesSequences() const { return m_takesSequences; }
    // The same, and the user has not refused colours by the environment variable NO_COLOR (https://no-color.org: set
    // and not empty).
    bool AllowsColour() const;
    // Whether what it shows may have characters beyond ASCII. A file or a pipe takes them all.
    bool ShowsUnicode() const;

private:
    [[maybe_unused]] unsigned m_codePage = 0; // Windows: to be put back; 0: nothing to put back
    [[maybe_unused]] DWORD m_mode = 0;        // Windows: the same
    bool m_takesSequences = false;
    bool m_allowsColour = false;
};

} // namespace platform
