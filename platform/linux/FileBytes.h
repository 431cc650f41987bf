// Reading of open files.
#pragma once

#include "platform/linux/FileDescriptor.h"
#include "platform/Types.h"

#include <vector>

namespace platform::linux {

// Whether an open file is a regular one.
bool IsRegularFile(const CFileDescriptor& file);

// Appends what the file holds from where it stands to *bytes, until that has maxBytes. The Windows error code.
DWORD ReadBytes(const CFileDescriptor& file, std::size_t maxBytes, std::vector<BYTE>* bytes);

} // namespace platform::linux
