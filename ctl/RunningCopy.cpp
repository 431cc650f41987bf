#include "ctl/RunningCopy.h"

#include "config/SharedNames.h"
#include "platform/LastError.h"
#include "platform/Pause.h"
#include "platform/Sync.h"
#include "platform/Text.h"
#include "platform/Window.h"

namespace ctl {

namespace {

// A copy lets its worker end for one second, and is ready when it has made its window.
constexpr DWORD kLimitMs = 10'000;
constexpr DWORD kLookMs = 20; // between two looks at what nothing tells of

// A copy keeps its mutex a little longer than its window, and a second one that finds the mutex ends at once.
void AwaitEndingCopy()
{
    for (DWORD waitedMs = 0; waitedMs < kLimitMs && !CopyRuns() && platform::OpenNamedMutex(kInstanceMutexName);
         waitedMs += kLookMs) {
        platform::Pause(kLookMs);
    }
}

// Whether there is neither window nor mutex before the time is up; for a copy whose process the system does not tell.
bool AwaitNoCopy()
{
    for (DWORD waitedMs = 0; waitedMs < kLimitMs; waitedMs += kLookMs) {
        if (!CopyRuns() && !platform::OpenNamedMutex(kInstanceMutexName)) {
            return true;
        }
        platform::Pause(kLookMs);
    }
    return false;
}

// Whether the window has appeared before the program has ended or the time is up.
bool AwaitWindow(const platform::ProgramPtr& program)
{
    for (DWORD waitedMs = 0; waitedMs < kLimitMs && !CopyRuns(); waitedMs += kLookMs) {
        if (platform::WaitForProgramEnd(program, kLookMs) == WAIT_OBJECT_0) {
            break;
        }
    }
    return CopyRuns();
}

} // namespace

bool CopyRuns() { return platform::FindWindowOfClass(kWindowClassName) != nullptr; }

bool EndCopy(bool waits)
{
    // Before it is told: afterwards the window may be gone while the process is not.
    const platform::ProgramPtr program = waits ? platform::FindProgramOfWindow(kWindowClassName) : nullptr;
    const platform::FoundWindowPtr window = platform::FindWindowOfClass(kWindowClassName);
    if (!window) {
        return false;
    }
    if (!platform::PostToWindow(window, WM_QUIT, 0, 0)) {
        throw CFailure(
            platform::FormatText(L"amporasrv cannot be told to end (error %u)", platform::GetLastErrorCode()));
    }
    if (!waits) {
        return true;
    }
    DWORD waited = program ? platform::WaitForProgramEnd(program, kLimitMs) : WAIT_FAILED;
    if (waited == WAIT_FAILED) {
        waited = AwaitNoCopy() ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
    }
    if (waited != WAIT_OBJECT_0) {
        throw CFailure(L"amporasrv has not ended within 10 seconds");
    }
    return true;
}

CString FindCopyProgram()
{
    CString path = platform::FindProgram(L"amporasrv");
    if (path.empty()) {
        throw CFailure(L"there is no amporasrv beside amporactl, nor in the folders of PATH");
    }
    return path;
}

void StartCopy(const CString& path)
{
    AwaitEndingCopy();
    if (CopyRuns()) {
        return;
    }
    const platform::ProgramPtr program = platform::StartProgram(path);
    if (!program) {
        throw CFailure(platform::FormatText(L"%s cannot be started (error %u)", path, platform::GetLastErrorCode()));
    }
    if (!AwaitWindow(program)) {
        const bool hasEnded = platform::WaitForProgramEnd(program, 0) == WAIT_OBJECT_0;
        throw CFailure(path + (hasEnded ? L" has ended at once; run it in a terminal to see why"
                                        : L" is not ready within 10 seconds"));
    }
}

CString RunsText()
{
    const platform::ProgramPtr program = platform::FindProgramOfWindow(kWindowClassName);
    return L"amporasrv runs" +
           (program ? platform::FormatText(L" (process %u)", platform::ProcessIdentifierOf(program)) : CString());
}

} // namespace ctl
