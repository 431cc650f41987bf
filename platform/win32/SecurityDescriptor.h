// The backend's own view of a security descriptor.
#pragma once

#include "platform/Security.h"

namespace platform {

class CSecurityDescriptor {
public:
    SECURITY_DESCRIPTOR m_descriptor = {};
};

namespace win32 {

// Attributes of a new object with this descriptor, not inheritable. security: null for the default rights; must live
// as long as the attributes are used.
SECURITY_ATTRIBUTES AttributesOf(const CSecurityDescriptor* security);

} // namespace win32

} // namespace platform
