// The access rights of a new named object, file or folder.
#pragma once

#include "platform/Types.h"

#include <memory>

namespace platform {

// A security descriptor. Immutable once both steps below are done.
class CSecurityDescriptor;
using SecurityDescriptorPtr = std::shared_ptr<CSecurityDescriptor>;

// A new, empty descriptor (revision 1), whose objects get the system's default rights. Null, last error set, on
// failure. Any thread.
SecurityDescriptorPtr InitializeDescriptor();

// Gives the descriptor a null DACL: everybody may do everything with objects made with it (Linux: mode 0666, folders
// 0777, whatever the umask). descriptor: must not be null. FALSE, last error set, on failure. Any thread.
BOOL SetNullDacl(const SecurityDescriptorPtr& descriptor);

} // namespace platform
