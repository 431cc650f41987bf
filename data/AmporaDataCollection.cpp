#include "data/AmporaDataCollection.h"

#include "config/TraceLog.h"
#include "data/CalendarTime.h"
#include "platform/Clock.h"

#include <iterator>

namespace {

// Whether the record lies entirely outside the closed period. An invalid time leaves its buffer as it is: 0 for an end,
// and the end's count for a start, which shares the buffer with it.
bool IsOutside(const _AmporaOneData& record, ULONGLONG lower, ULONGLONG upper)
{
    FILETIME fileTime{};
    platform::CalendarToFileTime(&record.stEnd, &fileTime);
    if (lower > platform::CountOf(fileTime)) {
        return true;
    }
    platform::CalendarToFileTime(&record.stStart, &fileTime);
    return upper < platform::CountOf(fileTime);
}

// The bound of a period; 0 when it is no valid time.
ULONGLONG BoundOf(const SYSTEMTIME& calendar)
{
    FILETIME fileTime{};
    platform::CalendarToFileTime(&calendar, &fileTime);
    return platform::CountOf(fileTime);
}

} // namespace

CAmporaDataCollection::CAmporaDataCollection()
{
    const CTraceScope scope(L"CAmporaDataCollection::CAmporaDataCollection");
}

CAmporaDataCollection::~CAmporaDataCollection()
{
    const CTraceScope scope(L"CAmporaDataCollection::~CAmporaDataCollection");
}

BOOL CAmporaDataCollection::AddAmporaData(const SYSTEMTIME& start, LONG durationSeconds, ULONGLONG value)
{
    const CTraceScope scope(L"CAmporaDataCollection::AddAmporaData");
    // A report's unreadable start arrives as a time in 1601, which has no time value.
    const std::int64_t startTime = start.wYear >= 1900 ? TimeFromCalendar(start) : 0;
    m_records.push_back({value, start, CalendarFromTime(startTime + durationSeconds)});
    return TRUE;
}

BOOL CAmporaDataCollection::AddAmporaData(const SYSTEMTIME& start, const SYSTEMTIME& end, ULONGLONG value)
{
    const CTraceScope scope(L"CAmporaDataCollection::AddAmporaData");
    m_records.push_back({value, start, end});
    return TRUE;
}

BOOL CAmporaDataCollection::AddAmporaData(const CAmporaDataCollection* other)
{
    const CTraceScope scope(L"CAmporaDataCollection::AddAmporaData");
    if (other == nullptr) {
        scope.Err(L"Invalid Parameter");
        return FALSE;
    }
    m_records.insert(m_records.end(), other->m_records.begin(), other->m_records.end());
    return TRUE;
}

void CAmporaDataCollection::AdjustData(const SYSTEMTIME& lower, const SYSTEMTIME& upper)
{
    const CTraceScope scope(L"CAmporaDataCollection::AdjustData");
    const ULONGLONG lowerCount = BoundOf(lower);
    const ULONGLONG upperCount = BoundOf(upper);
    for (auto position = m_records.end(); position != m_records.begin();) {
        const auto record = std::prev(position);
        if (IsOutside(*record, lowerCount, upperCount)) {
            scope.Tra(L"Out of Range. Remove Item");
            position = m_records.erase(record);
        } else {
            position = record;
        }
    }
}
