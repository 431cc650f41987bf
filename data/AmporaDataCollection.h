// The ordered list of forecast records of one company and data type.
#pragma once

#include "format/DataFileFormat.h"

#include <list>

// Records in the order in which they were added; neither sorted nor checked for duplicates. Belongs to one thread at a
// time. The operations throw std::bad_alloc only, unless said otherwise.
class CAmporaDataCollection {
public:
    CAmporaDataCollection();
    virtual ~CAmporaDataCollection();
    CAmporaDataCollection(const CAmporaDataCollection&) = delete;
    CAmporaDataCollection& operator=(const CAmporaDataCollection&) = delete;

    // Appends a record that ends durationSeconds (may be negative) after its start. A start before the year 1900 counts
    // as 1970-01-01 00:00:00 UTC; a start from 1900 on that cannot be converted throws COleException (CalendarTime.h).
    // An end that cannot be converted is stored all zero. Always TRUE.
    BOOL AddAmporaData(const SYSTEMTIME& start, LONG durationSeconds, ULONGLONG value);
    // Appends a record with both times as they are. Always TRUE.
    BOOL AddAmporaData(const SYSTEMTIME& start, const SYSTEMTIME& end, ULONGLONG value);
    // Appends copies of the records of the other list. FALSE, traced, for null.
    BOOL AddAmporaData(const CAmporaDataCollection* other);

    // Removes the records that lie entirely outside the closed period from lower to upper.
    void AdjustData(const SYSTEMTIME& lower, const SYSTEMTIME& upper);

    const std::list<_AmporaOneData>& Records() const { return m_records; }

private:
    std::list<_AmporaOneData> m_records;
};
