// Calendar times as text.
#pragma once

#include "platform/Types.h"

namespace ctl {

// Whether it is the time that stands for one that could not be computed.
bool IsUnknown(const SYSTEMTIME& time);

// "2012-07-02"; of a time that is known.
CString DayText(const SYSTEMTIME& time);

// "2012-07-02 13:00" and "2012-07-02 13:00:05"; "unknown".
CString TimeText(const SYSTEMTIME& time);
CString SecondText(const SYSTEMTIME& time);

// "2012-07-02T13:00:05"; empty for an unknown time.
CString IsoText(const SYSTEMTIME& time);

// "2012-07-02 13:00 - 13:05", with the end's day when it is another one.
CString PeriodText(const SYSTEMTIME& start, const SYSTEMTIME& end);

// "45 s", "12 min", "3 h 5 min", "2 d 4 h": a length of time in its two largest units; "-12 min" for a negative one.
CString DurationText(std::int64_t seconds);

} // namespace ctl
