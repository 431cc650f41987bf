// Checked conversion between local calendar times, time values and the FILETIME scale (platform/Clock.h).
#pragma once

#include "platform/CodeException.h"
#include "platform/Types.h"

// A date that cannot be converted.
class COleException : public platform::CCodeException<HRESULT> {
public:
    // code: one of the two below.
    explicit COleException(HRESULT code) : CCodeException("OLE exception", code) {}
};

// Status codes that TimeFromCalendar throws.
inline constexpr HRESULT kInvalidDatePart = static_cast<HRESULT>(0x80004005);
inline constexpr HRESULT kDateConversionFailed = static_cast<HRESULT>(0x80070057);

// Seconds since 1970-01-01 00:00:00 UTC of a local calendar time, daylight saving left to the system; milliseconds and
// day of week are not looked at. Throws COleException: kInvalidDatePart for a year below 1900, a month outside 1 to 12,
// a day outside 1 to 31, an hour above 23, a minute or second above 59; kDateConversionFailed when the time lies
// before 1970-01-01 00:00:00 UTC or after the year 3000. Any thread.
std::int64_t TimeFromCalendar(const SYSTEMTIME& local);

// The local calendar time of a time value, milliseconds 0; all zero when it cannot be converted. Any thread.
SYSTEMTIME CalendarFromTime(std::int64_t time);

// A time value on the FILETIME scale, in UTC; 0 when it cannot be converted. Goes by way of local calendar time, so
// daylight saving is as LocalToUtcFileTime has it. Any thread.
ULONGLONG CountFromTime(std::int64_t time);
