#include "ctl/Control.h"

#include "ctl/CommandLine.h"

int RunControl(const std::vector<CString>& arguments, std::ostream& out, std::ostream& err)
{
    const platform::CTerminal terminal;
    const ctl::Console console{out, err, terminal};
    try {
        const int exitCode = ctl::CCommandLine().Run(arguments, console);
        if (!out.flush()) {
            throw ctl::CFailure(L"standard output cannot be written");
        }
        return exitCode;
    } catch (const ctl::CFailure& failure) {
        err << "amporactl: " << failure.what() << "\n";
        return failure.ExitCode();
    }
}
