#include "fetch/AmporaGoolgeSiteConfig.h"

#include "config/ConfigUtil.h"
#include "config/TraceLog.h"
#include "data/GSXMLAnalyzer.h"
#include "fetch/NullDacl.h"
#include "format/Catalogue.h"
#include "format/DataFilePath.h"
#include "platform/Files.h"
#include "platform/LastError.h"
#include "platform/Text.h"

namespace {

// Of the host, the category, the company, the kind and the day.
constexpr wchar_t kReportUrl[] = L"http://%s/%s/%s/%s?date=%04d-%02d-%02d&output=xml";

// The answer of a source that has no data for the day.
constexpr DWORD kStatusNoData = 503;

// Null when memory runs out.
std::unique_ptr<CAmporaDataCollection> MakeCollection()
{
    try {
        return std::make_unique<CAmporaDataCollection>();
    } catch (...) {
        return nullptr;
    }
}

} // namespace

CAmporaGoolgeSiteConfig::CAmporaGoolgeSiteConfig()
{
    const CTraceScope scope(L"CAmporaGoolgeSiteConfig::CAmporaGoolgeSiteConfig");
    m_analyzer = std::make_unique<CGSXMLAnalyzer>();
    m_analyzer->Initialize();
}

CAmporaGoolgeSiteConfig::~CAmporaGoolgeSiteConfig()
{
    const CTraceScope scope(L"CAmporaGoolgeSiteConfig::~CAmporaGoolgeSiteConfig");
    m_analyzer->Finalize();
    m_analyzer.reset();
}

std::unique_ptr<CAmporaDataCollection> CAmporaGoolgeSiteConfig::AnalyzeData(DWORD /*dataType*/, CString body,
                                                                            DWORD status)
{
    const CTraceScope scope(L"CAmporaGoolgeSiteConfig::AnalyzeData");
    if (!body.empty()) {
        try {
            return m_analyzer->AnalyzeData(std::move(body));
        } catch (...) {
            scope.Err(L"Analyze Exception!");
            return nullptr;
        }
    }
    if (status != kStatusNoData) {
        scope.Err(L"Data is Empty");
        return nullptr;
    }
    scope.Tra(L"No Data");
    std::unique_ptr<CAmporaDataCollection> collection = MakeCollection();
    if (!collection) {
        scope.Err(L"CAmporaDataCollection Allocate Fail!");
    }
    // Set in both cases: it tells a caller that the list is empty because there is no data.
    platform::SetLastErrorCode(ERROR_OUTOFMEMORY);
    return collection;
}

CString CAmporaGoolgeSiteConfig::GetURL(CString companyKey, DWORD dataType, SYSTEMTIME day)
{
    const CTraceScope scope(L"CAmporaGoolgeSiteConfig::GetURL");
    const catalogue::Kind* const kind = catalogue::FindKind(dataType);
    if (kind == nullptr) {
        return {};
    }
    CString url = platform::FormatText(kReportUrl, CConfigUtil::GetApiHost(), kind->category.Wide(), companyKey,
                                       kind->word.Wide(), day.wYear, day.wMonth, day.wDay);
    return url;
}

void CAmporaGoolgeSiteConfig::OutData(CString filePath, DWORD dataType, const CAmporaDataCollection* collection,
                                      SYSTEMTIME writeTime)
{
    const CTraceScope scope(L"CAmporaGoolgeSiteConfig::OutData");
    if (collection == nullptr) {
        scope.Err(L"Param is NULL");
        return;
    }
    const platform::SecurityDescriptorPtr security = MakeNullDacl(scope);
    if (!security) {
        return;
    }
    const platform::OutputFilePtr file = platform::OpenForReplace(filePath, security.get());
    if (!file) {
        scope.Err(L"Open Fail.");
        return;
    }
    const auto& records = collection->Records();
    const DataFileHeader header{kDataFileVersion, dataType, static_cast<DWORD>(records.size()), 0, writeTime};
    platform::WriteFileBytes(file, &header, sizeof(header));
    for (const _AmporaOneData& record : records) {
        platform::WriteFileBytes(file, &record, sizeof(record));
    }
}

CString CAmporaGoolgeSiteConfig::GetSaveFolderPath()
{
    const CTraceScope scope(L"CAmporaGoolgeSiteConfig::GetSaveFolderPath");
    CString path = DataFolder();
    if (path.empty()) {
        scope.Err(L"Get Common App Folder Fail.");
        return {};
    }
    if (platform::PathExists(path)) {
        return path;
    }
    const platform::SecurityDescriptorPtr security = MakeNullDacl(scope);
    if (!security) {
        return {};
    }
    if (platform::MakeFolder(path, security.get())) {
        scope.Tra(L"Save Folder Created(%s)", path);
    } else {
        scope.War(L"Save Folder Create Fail");
    }
    return path;
}
