#include "ctl/TimeText.h"

#include "platform/Text.h"

namespace ctl {

namespace {

CString MinuteText(const SYSTEMTIME& time) { return platform::FormatText(L"%02d:%02d", time.wHour, time.wMinute); }

} // namespace

CString DayText(const SYSTEMTIME& time)
{
    return platform::FormatText(L"%04d-%02d-%02d", time.wYear, time.wMonth, time.wDay);
}

bool IsUnknown(const SYSTEMTIME& time) { return time.wYear == 0; }

CString TimeText(const SYSTEMTIME& time)
{
    return IsUnknown(time) ? L"unknown" : DayText(time) + L" " + MinuteText(time);
}

CString SecondText(const SYSTEMTIME& time)
{
    return TimeText(time) + (IsUnknown(time) ? CString() : platform::FormatText(L":%02d", time.wSecond));
}

CString IsoText(const SYSTEMTIME& time)
{
    return IsUnknown(time) ? CString()
                           : DayText(time) + L"T" + MinuteText(time) + platform::FormatText(L":%02d", time.wSecond);
}

CString PeriodText(const SYSTEMTIME& start, const SYSTEMTIME& end)
{
    const bool sameDay = !IsUnknown(end) && DayText(start) == DayText(end);
    return TimeText(start) + L" - " + (sameDay ? MinuteText(end) : TimeText(end));
}

} // namespace ctl
