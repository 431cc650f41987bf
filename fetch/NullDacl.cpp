#include "fetch/NullDacl.h"

platform::SecurityDescriptorPtr MakeNullDacl(const CTraceLog& log)
{
    platform::SecurityDescriptorPtr descriptor = platform::InitializeDescriptor();
    if (!descriptor) {
        log.Err(L"InitializeSecurityDescriptor Fail.");
        return nullptr;
    }
    if (!platform::SetNullDacl(descriptor)) {
        log.Err(L"SetSecurityDescriptorDacl Fail.");
        return nullptr;
    }
    return descriptor;
}
