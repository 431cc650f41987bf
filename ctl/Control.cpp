#include "ctl/Control.h"

#include "ctl/CommandLine.h"

#include <cerrno>

namespace {

// What a program sees whose reader has gone, such as head: EPIPE, on Windows EINVAL as well. That is no news to
// anybody.
bool HasReaderGone() { return errno == EPIPE || errno == EINVAL; }

} // namespace

int RunControl(const std::vector<CString>& arguments, std::ostream& out, std::ostream& err)
{
    const platform::CTerminal terminal;
    const ctl::Console console{out, err, terminal};
    errno = 0; // only a failed write is to be seen in it
    try {
        const int exitCode = ctl::CCommandLine().Run(arguments, console);
        if (!out.flush()) {
            if (HasReaderGone()) {
                return ctl::kExitFailure;
            }
            throw ctl::CFailure(L"standard output cannot be written");
        }
        return exitCode;
    } catch (const ctl::CFailure& failure) {
        err << "amporactl: " << failure.what() << "\n";
        return failure.ExitCode();
    }
}
