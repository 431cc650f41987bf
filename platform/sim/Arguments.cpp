#include "platform/Arguments.h"

#include "platform/sim/MachineState.h"
#include "platform/Thread.h"

namespace platform {

std::vector<CString> ProgramArguments(int /*argc*/, const char* const* /*argv*/)
{
    return sim::Machine().processes.at(CurrentProcessIdentifier()).arguments;
}

} // namespace platform
