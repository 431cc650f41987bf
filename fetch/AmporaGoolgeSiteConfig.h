// The site configuration of the forecast API: what its companies have in common.
#pragma once

#include "fetch/AmporaSiteConfig.h"

class CGSXMLAnalyzer;

// Builds the URL of a report, has its answer analysed and writes the data file. The derived class decides whose reports
// they are and whether they are wanted. Used by one thread, which must be inside an apartment (platform/Apartment.h).
class CAmporaGoolgeSiteConfig : public CAmporaSiteConfig {
public:
    CAmporaGoolgeSiteConfig();
    ~CAmporaGoolgeSiteConfig() override;

    using CAmporaSiteConfig::GetURL;
    using CAmporaSiteConfig::OutData;

    // As CAmporaSiteConfig::AnalyzeData. dataType: ignored. An empty body with status 503 means that there is no data
    // and gives an empty list with last error 14; with any other status it is a failure.
    std::unique_ptr<CAmporaDataCollection> AnalyzeData(DWORD dataType, CString body, DWORD status) override;

    // The address of a company's report. companyKey: its word in the path; day: only year, month and day matter. Empty
    // when dataType is not exactly one data type code.
    virtual CString GetURL(CString companyKey, DWORD dataType, SYSTEMTIME day);

    // Replaces one data file. filePath: where; otherwise as the other OutData. A file that cannot be opened stays as it
    // was, traced. A write that fails leaves the file incomplete and closed.
    virtual void OutData(CString filePath, DWORD dataType, const CAmporaDataCollection* collection,
                         SYSTEMTIME writeTime);

    // The folder of the data files, created for everybody when nothing of that name exists. Returns its path even
    // when it could not be created: then opening a file in it fails. Empty, traced, when the common application-data
    // folder is unknown or the folder's security descriptor could not be made.
    CString GetSaveFolderPath();

private:
    std::unique_ptr<CGSXMLAnalyzer> m_analyzer;
};
