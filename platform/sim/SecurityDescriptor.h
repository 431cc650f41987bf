// The simulated machine's security descriptor.
#pragma once

#include "platform/Security.h"

namespace platform {

class CSecurityDescriptor {
public:
    bool hasNullDacl = false;
};

} // namespace platform
