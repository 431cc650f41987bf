#include "platform/FolderCheck.h"

#include "platform/linux/NamedFile.h"
#include "platform/linux/UserMessage.h"

#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace platform {

namespace {

bool HasAccess(const std::string& path, int mode) { return ::faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0; }

// Tells the user when the path can neither be accessed in this mode nor, where nothing has it yet, be created.
void ReportUnlessUsable(const std::string& what, const std::string& path, int mode)
{
    if (HasAccess(path, mode) || (errno == ENOENT && HasAccess(path.substr(0, path.rfind('/') + 1), W_OK | X_OK))) {
        return;
    }
    linux::TellUser("cannot " + what + " " + path + ": " + std::generic_category().message(errno));
}

} // namespace

void ReportUnusableFolders(const CString& dataFolder, const wchar_t* mutexName)
{
    if (dataFolder.empty()) {
        linux::TellUser("cannot store data: there is no folder $AMPORA_COMMON_APPDATA, and it cannot be made");
    } else {
        ReportUnlessUsable("write to the data folder", EncodeUtf8(dataFolder), W_OK | X_OK);
    }
    ReportUnlessUsable("use the lock", linux::NamedFilePath(mutexName), R_OK | W_OK);
}

} // namespace platform
