// What has to be set up before the program can store anything.
#pragma once

#include "platform/Types.h"

#include <vector>

namespace platform {

// What keeps copies of the program from storing anything, one line each, without a full stop: files cannot be written
// in the data folder, or the machine-wide mutex cannot be used. dataFolder: need not exist as long as it can be made,
// empty when it is unknown; mutexName: must not be null. Looks only, makes nothing. Any thread.
std::vector<CString> FindUnusableFolders(const CString& dataFolder, const wchar_t* mutexName);

// Tells the user the same on standard error, whatever the trace level is. Linux only, where an administrator has to
// make folders for users; nothing happens elsewhere. Any thread.
void ReportUnusableFolders(const CString& dataFolder, const wchar_t* mutexName);

} // namespace platform
