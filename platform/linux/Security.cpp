#include "platform/Security.h"

#include "platform/LastError.h"
#include "platform/linux/SecurityDescriptor.h"

namespace platform {

SecurityDescriptorPtr InitializeDescriptor() { return std::make_shared<CSecurityDescriptor>(); }

BOOL SetNullDacl(const SecurityDescriptorPtr& descriptor)
{
    if (!descriptor) {
        SetLastErrorCode(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    descriptor->m_nullDacl = true;
    return TRUE;
}

} // namespace platform
