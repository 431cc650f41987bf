// What the user has to set up before the program can store anything.
#pragma once

#include "platform/Types.h"

namespace platform {

// Tells the user, on standard error and whatever the trace level is, when files cannot be written in the data folder or
// when the machine-wide mutex cannot be used, one line each. dataFolder: need not exist as long as it can be made,
// empty when it is unknown; mutexName: must not be null. Looks only, makes nothing. Linux only, where an administrator
// has to make folders for users; nothing happens elsewhere. Any thread.
void ReportUnusableFolders(const CString& dataFolder, const wchar_t* mutexName);

} // namespace platform
