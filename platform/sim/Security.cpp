#include "platform/Security.h"

#include "platform/sim/MachineState.h"
#include "platform/sim/SecurityDescriptor.h"

namespace platform {

SecurityDescriptorPtr InitializeDescriptor()
{
    if (sim::FailsByFault(sim::Call::kInitializeDescriptor)) {
        return nullptr;
    }
    return std::make_shared<CSecurityDescriptor>();
}

BOOL SetNullDacl(const SecurityDescriptorPtr& descriptor)
{
    if (sim::FailsByFault(sim::Call::kSetNullDacl)) {
        return FALSE;
    }
    descriptor->hasNullDacl = true;
    return TRUE;
}

} // namespace platform
