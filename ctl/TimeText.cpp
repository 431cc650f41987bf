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

CString DurationText(std::int64_t seconds)
{
    constexpr std::int64_t kMinute = 60;
    constexpr std::int64_t kHour = 60 * kMinute;
    constexpr std::int64_t kDay = 24 * kHour;
    if (seconds < 0) {
        return L"-" + DurationText(-seconds);
    }
    const auto withRest = [](std::int64_t count, const wchar_t* unit, std::int64_t rest, const wchar_t* restUnit) {
        return platform::FormatText(L"%d %s", count, unit) +
               (rest == 0 ? CString() : platform::FormatText(L" %d %s", rest, restUnit));
    };
    if (seconds < kMinute) {
        return withRest(seconds, L"s", 0, L"");
    }
    if (seconds < kHour) {
        return withRest(seconds / kMinute, L"min", 0, L"");
    }
    return seconds < kDay ? withRest(seconds / kHour, L"h", seconds % kHour / kMinute, L"min")
                          : withRest(seconds / kDay, L"d", seconds % kDay / kHour, L"h");
}

} // namespace ctl
