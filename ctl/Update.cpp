#include "config/SharedNames.h"
#include "ctl/CommandLine.h"
#include "ctl/Verbs.h"
#include "platform/LastError.h"
#include "platform/Sync.h"
#include "platform/Text.h"

namespace ctl {

namespace {

// amporasrv waits for the event as long as it runs and is neither suspended nor out of its session's foreground.
int Update(const Console& /*console*/)
{
    const platform::WaitHandle event = platform::OpenNamedEvent(kUpdateEventName);
    if (!event && platform::GetLastErrorCode() == ERROR_FILE_NOT_FOUND) {
        throw CFailure(L"amporasrv is not running");
    }
    if (!event || !platform::SetNamedEvent(event)) {
        throw CFailure(platform::FormatText(L"amporasrv cannot be asked (error %u)", platform::GetLastErrorCode()));
    }
    return kExitSuccess;
}

} // namespace

void AddUpdate(CCommandLine& program)
{
    program.AddVerb("update", "Ask the amporasrv of this session for an update now", "", "update", Update);
}

} // namespace ctl
