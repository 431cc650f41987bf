#include "format/DataFilePath.h"

#include "platform/Files.h"
#include "platform/LastError.h"
#include "platform/Text.h"

namespace {

constexpr wchar_t kFolderName[] = L"AmporaSrv";

} // namespace

const wchar_t* FileKeyOfSite(int siteNumber)
{
    switch (siteNumber) {
    case kSiteTohoku:
        return L"tohoku";
    case kSiteTokyo:
        return L"tokyo";
    case kSiteChubu:
        return L"chubu";
    case kSiteKansai:
        return L"kansai";
    case kSiteKyushu:
        return L"kyushu";
    default:
        return nullptr;
    }
}

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
    const wchar_t* const key = FileKeyOfSite(siteNumber);
    if (key == nullptr) {
        return {};
    }
    return platform::FormatText(L"%s%s%s_%08X.dat", folder, platform::kPathSeparator, key, dataType);
}

void CutPath(const CString& path, wchar_t (&buffer)[MAX_PATH]) { buffer[path.copy(buffer, MAX_PATH - 1)] = L'\0'; }

bool GetFilePath(wchar_t (&buffer)[MAX_PATH], int siteNumber, DWORD dataType)
{
    if (FileKeyOfSite(siteNumber) == nullptr) {
        platform::SetLastErrorCode(ERROR_NOT_SUPPORTED);
        return false;
    }
    CutPath(DataFileIn(DataFolder(), siteNumber, dataType), buffer);
    return true;
}
