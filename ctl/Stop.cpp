#include "config/SharedNames.h"
#include "ctl/CommandLine.h"
#include "ctl/Verbs.h"
#include "platform/LastError.h"
#include "platform/Sync.h"
#include "platform/Text.h"
#include "platform/Window.h"

namespace ctl {

namespace {

constexpr DWORD kEndLimitMs = 10'000; // a worker gets one second to end

// Keeps the mutex of the running copy, which owns it until its main thread ends, open before the copy is told to end:
// otherwise there would be nothing left to wait for.
int Stop(const Console& console)
{
    const platform::WaitHandle mutex = platform::CreateNamedMutex(kInstanceMutexName, FALSE, nullptr);
    const DWORD error = platform::GetLastErrorCode();
    if (!mutex) {
        throw CFailure(platform::FormatText(L"amporasrv cannot be looked for (error %u)", error));
    }
    const platform::FoundWindowPtr window = platform::FindWindowOfClass(kWindowClassName);
    if (error != ERROR_ALREADY_EXISTS && !window) {
        console.out << "amporasrv was not running\n";
        return kExitSuccess;
    }
    if (window && !platform::PostToWindow(window, WM_QUIT, 0, 0)) {
        throw CFailure(
            platform::FormatText(L"amporasrv cannot be told to end (error %u)", platform::GetLastErrorCode()));
    }
    const DWORD waited = platform::WaitForOne(mutex, kEndLimitMs, FALSE);
    if (waited != WAIT_OBJECT_0 && waited != WAIT_ABANDONED_0) {
        throw CFailure(L"amporasrv has not ended within 10 seconds");
    }
    platform::ReleaseOwnedMutex(mutex);
    return kExitSuccess;
}

} // namespace

void AddStop(CCommandLine& program)
{
    program.AddVerb("stop", "End the amporasrv of this session and wait for its end", "", "stop", Stop);
}

} // namespace ctl
