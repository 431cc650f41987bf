#include "app/AmporaSrv.h"

#include "config/ConfigUtil.h"
#include "config/TraceLog.h"
#include "engine/AmporaUpdater.h"

namespace {

constexpr DWORD kStopTimeoutMs = 1000;

} // namespace

int RunAmporaSrv()
{
    g_dwLogLevel = CConfigUtil::GetLogLevel();
    const auto updater = std::make_shared<CAmporaUpdater>();
    if (!updater->Start()) {
        return 1;
    }
    updater->WaitForEnd(INFINITE);
    updater->Stop(kStopTimeoutMs);
    return 0;
}
