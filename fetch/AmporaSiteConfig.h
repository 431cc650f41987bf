// The interface through which the update pass handles one data source.
#pragma once

#include "data/AmporaDataCollection.h"

#include <memory>

// Used by one thread, which must be inside an apartment (platform/Apartment.h).
class CAmporaSiteConfig {
public:
    CAmporaSiteConfig();
    virtual ~CAmporaSiteConfig();
    CAmporaSiteConfig(const CAmporaSiteConfig&) = delete;
    CAmporaSiteConfig& operator=(const CAmporaSiteConfig&) = delete;

    // The address of the report of one kind and day. dataType: data type code; day: local date, its time of day is
    // ignored. Empty when there is nothing to fetch.
    virtual CString GetURL(DWORD dataType, SYSTEMTIME day) = 0;

    // Turns an answer into records. body: its whole text; status: its HTTP status code. A new list, empty when the
    // source has no data for the day, or null on failure. Never throws.
    virtual std::unique_ptr<CAmporaDataCollection> AnalyzeData(DWORD dataType, CString body, DWORD status) = 0;

    // Replaces the source's data file of one kind. collection: stays the caller's, null is refused; writeTime: local
    // time, stored in the file. Throws platform::CFileException when a write fails.
    virtual void OutData(DWORD dataType, const CAmporaDataCollection* collection, SYSTEMTIME writeTime) = 0;
};
