// The interface through which a downloaded report becomes a list of records.
#pragma once

#include "data/AmporaDataCollection.h"

#include <memory>

class CAmporaAnalyzer {
public:
    CAmporaAnalyzer();
    virtual ~CAmporaAnalyzer();
    CAmporaAnalyzer(const CAmporaAnalyzer&) = delete;
    CAmporaAnalyzer& operator=(const CAmporaAnalyzer&) = delete;

    // strData: the report's text. A new list, or null when the text is not a report; exceptions of the records
    // (CAmporaDataCollection) pass through. The thread must be inside an apartment (platform/Apartment.h).
    virtual std::unique_ptr<CAmporaDataCollection> AnalyzeData(CString strData) = 0;
};
