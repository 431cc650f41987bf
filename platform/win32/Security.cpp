#include "platform/Security.h"

#include "platform/win32/SecurityDescriptor.h"

namespace platform {

SecurityDescriptorPtr InitializeDescriptor()
{
    auto descriptor = std::make_shared<CSecurityDescriptor>();
    return ::InitializeSecurityDescriptor(&descriptor->m_descriptor, SECURITY_DESCRIPTOR_REVISION) ? descriptor
                                                                                                   : nullptr;
}

BOOL SetNullDacl(const SecurityDescriptorPtr& descriptor)
{
    return ::SetSecurityDescriptorDacl(&descriptor->m_descriptor, TRUE, nullptr, FALSE);
}

namespace win32 {

static_assert(sizeof(SECURITY_ATTRIBUTES) == 24);

SECURITY_ATTRIBUTES AttributesOf(const CSecurityDescriptor* security)
{
    SECURITY_ATTRIBUTES attributes = {};
    attributes.nLength = sizeof(attributes);
    // The system only reads it.
    attributes.lpSecurityDescriptor = security ? const_cast<SECURITY_DESCRIPTOR*>(&security->m_descriptor) : nullptr;
    attributes.bInheritHandle = FALSE;
    return attributes;
}

} // namespace win32

} // namespace platform
