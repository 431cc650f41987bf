#include "ctl/RunningCopy.h"
#include "ctl/Verbs.h"
#include "platform/Text.h"

namespace ctl {

namespace {

int Start(const Console& console)
{
    if (!CopyRuns()) {
        StartCopy(FindCopyProgram());
    }
    console.out << platform::EncodeUtf8(RunsText() + L"\n");
    return kExitSuccess;
}

// The program is looked for first: without it the copy that runs had better go on. Requests for an update are not lost:
// those of the meantime come before the new copy's first pass, which it makes at its start.
int Restart(const Console& console)
{
    const CString path = FindCopyProgram();
    const bool hadRun = EndCopy(true);
    try {
        StartCopy(path);
    } catch (const CFailure& failure) {
        throw CFailure((hadRun ? L"amporasrv has ended and does not run any more: " : L"") +
                       platform::DecodeUtf8(failure.what()));
    }
    console.out << platform::EncodeUtf8(RunsText() + L"\n");
    return kExitSuccess;
}

} // namespace

void AddStart(CCommandLine& program)
{
    program.AddVerb("start", "Start amporasrv in this session, unless it runs, and wait until it does", "", "start",
                    Start);
}

void AddRestart(CCommandLine& program)
{
    program.AddVerb("restart", "End the amporasrv of this session, if it runs, and start it again", "", "restart",
                    Restart);
}

} // namespace ctl
