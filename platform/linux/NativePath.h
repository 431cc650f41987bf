// Paths in the file system's own form.
#pragma once

#include "platform/Types.h"

#include <string>

namespace platform::linux {

// The path in the file system's own form. Empty, which no file has, when it holds a zero. Any thread.
std::string NativePath(const CString& path);

// The folder around what has this path; for a name alone the working directory. Any thread.
CString FolderOf(const CString& path);

} // namespace platform::linux
