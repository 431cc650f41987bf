#include "ctl/RunningCopy.h"
#include "ctl/Verbs.h"

#include <memory>

namespace ctl {

namespace {

int Exit(bool waits, const Console& console)
{
    if (!EndCopy(waits)) {
        console.out << "amporasrv was not running\n";
    }
    return kExitSuccess;
}

} // namespace

void AddExit(CCommandLine& program)
{
    const auto waits = std::make_shared<bool>(false);
    CLI::App& verb = program.AddVerb("exit", "End the amporasrv of this session", "", "exit\nexit --wait",
                                     [waits](const Console& console) { return Exit(*waits, console); });
    verb.add_flag("--wait", *waits, "Return when its process has ended");
}

} // namespace ctl
