// The site configuration of the forecast API: what its companies have in common.
#pragma once

#include "fetch/AmporaSiteConfig.h"

class CGSXMLAnalyzer;

// Builds the URL of a report, has an answer analysed and writes the data file. Whose reports they are, and whether they
// are wanted, is the derived class's business. Used by one thread, which must be inside an apartment
// (platform/Thread.h).
class CAmporaGoolgeSiteConfig : public CAmporaSiteConfig {
public:
    CAmporaGoolgeSiteConfig();
    ~CAmporaGoolgeSiteConfig() override;

    using CAmporaSiteConfig::GetURL;
    using CAmporaSiteConfig::OutData;

    // As CAmporaSiteConfig::AnalyzeData. dataType: not looked at. An empty body means, with status 503, that there is
    // no data: an empty list with last error 14; with any other status it is a failure.
    std::unique_ptr<CAmporaDataCollection> AnalyzeData(DWORD dataType, CString body, DWORD status) override;

    // The address of a company's report. companyKey: its word in the path; day: its year, month and day count. Empty
    // when dataType is not exactly one data type code.
    virtual CString GetURL(CString companyKey, DWORD dataType, SYSTEMTIME day);

    // Replaces one data file. filePath: where; otherwise as the other OutData. A file that cannot be opened stays as it
    // was, traced. A write that fails leaves a part of the file, and closes it.
    virtual void OutData(CString filePath, DWORD dataType, const CAmporaDataCollection* collection,
                         SYSTEMTIME writeTime);

    // The folder of the data files, created for everybody when nothing of that name exists. Its path even when it
    // could not be created: then opening a file in it fails. Empty, traced, when the common application-data folder is
    // unknown or the folder's rights could not be made.
    CString GetSaveFolderPath();

private:
    std::unique_ptr<CGSXMLAnalyzer> m_analyzer;
};
