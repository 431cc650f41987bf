// The folder of the user's session, where its named objects are files and sockets.
#pragma once

#include "platform/linux/FileDescriptor.h"

#include <string>

namespace platform::linux {

// Its path: "AmporaSrv" below $XDG_RUNTIME_DIR, or "/tmp/AmporaSrv-" and the user's number where that variable is not
// set to an absolute path. Nothing is looked at or made. Any thread.
std::string SessionFolderPath();

// Opens the folder, made private (0700) when missing. None, with errno set, on failure; EACCES when it is not a folder
// of the user's own that nobody else may enter. Any thread.
CFileDescriptor OpenSessionFolder();

} // namespace platform::linux
