#include "format/DataFilePath.h"

#include "format/Catalogue.h"
#include "platform/Files.h"
#include "platform/LastError.h"
#include "platform/Text.h"

namespace {

constexpr wchar_t kFolderName[] = L"AmporaSrv";

} // namespace

CString DataFolder()
{
    CString common;
    if (!platform::GetCommonAppDataFolder(&common)) {
        return {};
    }
    return common + platform::kPathSeparator + kFolderName;
}

CString DataFileIn(const CString& folder, int siteNumber, DWORD dataType)
{
    const catalogue::Company* const company = catalogue::FindCompany(siteNumber);
    if (company == nullptr) {
        return {};
    }
    return platform::FormatText(L"%s%s%s_%08X.dat", folder, platform::kPathSeparator, company->key.Wide(), dataType);
}

void CutPath(const CString& path, wchar_t (&buffer)[MAX_PATH]) { buffer[path.copy(buffer, MAX_PATH - 1)] = L'\0'; }

bool GetFilePath(wchar_t (&buffer)[MAX_PATH], int siteNumber, DWORD dataType)
{
    if (catalogue::FindCompany(siteNumber) == nullptr) {
        platform::SetLastErrorCode(ERROR_NOT_SUPPORTED);
        return false;
    }
    CutPath(DataFileIn(DataFolder(), siteNumber, dataType), buffer);
    return true;
}
