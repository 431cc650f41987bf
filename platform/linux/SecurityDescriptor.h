// The backend's own view of a security descriptor.
#pragma once

#include "platform/Security.h"

#include <sys/types.h>

namespace platform {

class CSecurityDescriptor {
public:
    bool m_nullDacl = false;
};

namespace linux {

// Whether objects made with this descriptor are everybody's. security: null for the default rights.
inline bool IsOpenToAll(const CSecurityDescriptor* security) { return security != nullptr && security->m_nullDacl; }

// Modes of new files and folders: everybody's, or, by default, the user's alone.
inline constexpr mode_t kFileForAll = 0666;
inline constexpr mode_t kFilePrivate = 0600;
inline constexpr mode_t kFolderForAll = 0777;
inline constexpr mode_t kFolderPrivate = 0700;

} // namespace linux

} // namespace platform
