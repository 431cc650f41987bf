#include "platform/FolderCheck.h"

#include "platform/linux/NamedFile.h"
#include "platform/linux/UserMessage.h"

#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace platform {

namespace {

bool HasAccess(const std::string& path, int mode) { return ::faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0; }

// Adds a line when the path can neither be accessed in this mode nor, where nothing has it yet, be created.
void AddUnlessUsable(std::vector<CString>& lines, const std::string& what, const std::string& path, int mode)
{
    if (HasAccess(path, mode) || (errno == ENOENT && HasAccess(path.substr(0, path.rfind('/') + 1), W_OK | X_OK))) {
        return;
    }
    const std::string reason = std::generic_category().message(errno);
    lines.push_back(DecodeUtf8("cannot " + what + " " + path + ": " + reason));
}

} // namespace

std::vector<CString> FindUnusableFolders(const CString& dataFolder, const wchar_t* mutexName)
{
    std::vector<CString> lines;
    if (dataFolder.empty()) {
        lines.emplace_back(L"cannot store data: there is no folder $AMPORA_COMMON_APPDATA, and it cannot be made");
    } else {
        AddUnlessUsable(lines, "write to the data folder", EncodeUtf8(dataFolder), W_OK | X_OK);
    }
    AddUnlessUsable(lines, "use the lock", linux::NamedFilePath(mutexName), R_OK | W_OK);
    return lines;
}

void ReportUnusableFolders(const CString& dataFolder, const wchar_t* mutexName)
{
    for (const CString& line : FindUnusableFolders(dataFolder, mutexName)) {
        linux::TellUser(EncodeUtf8(line));
    }
}

} // namespace platform
