#include "platform/FolderCheck.h"

namespace platform {

void ReportUnusableFolders(const CString&, const wchar_t*) {}

} // namespace platform
