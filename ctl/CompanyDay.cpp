#include "ctl/CompanyDay.h"

#include "ctl/TimeText.h"
#include "platform/Clock.h"
#include "platform/Text.h"

#include <algorithm>
#include <limits>

namespace ctl {

namespace {

constexpr std::uint64_t kMinute = 60 * 10'000'000ULL; // in the units of FILETIME

bool IsSameDay(const SYSTEMTIME& left, const SYSTEMTIME& right)
{
    return left.wYear == right.wYear && left.wMonth == right.wMonth && left.wDay == right.wDay;
}

int MinuteOf(const SYSTEMTIME& time) { return time.wHour * 60 + time.wMinute; }

// Minutes from start to end of a record, a part of one as a whole one, at most a day; 0 when that is not known.
int LengthOf(const _AmporaOneData& record)
{
    FILETIME start{};
    FILETIME end{};
    if (!platform::CalendarToFileTime(&record.stStart, &start) || !platform::CalendarToFileTime(&record.stEnd, &end) ||
        platform::CountOf(end) <= platform::CountOf(start)) {
        return 0;
    }
    const std::uint64_t minutes = (platform::CountOf(end) - platform::CountOf(start) + kMinute - 1) / kMinute;
    return static_cast<int>(std::min<std::uint64_t>(minutes, chart::kDayMinutes));
}

std::vector<_AmporaOneData> RecordsOf(const KnownFile& known, const SYSTEMTIME& day)
{
    std::vector<_AmporaOneData> records = known.content.records;
    std::erase_if(records, [&day](const _AmporaOneData& record) {
        return !IsSameDay(record.stStart, day) || LengthOf(record) == 0;
    });
    std::stable_sort(records.begin(), records.end(), StartsEarlier);
    return records;
}

chart::DayValue ValueOf(const _AmporaOneData& record)
{
    constexpr ULONGLONG kHighest = std::numeric_limits<std::int64_t>::max();
    return {MinuteOf(record.stStart), LengthOf(record), static_cast<std::int64_t>(std::min(record.ullValue, kHighest))};
}

std::vector<chart::DayValue> ValuesOf(const std::vector<_AmporaOneData>& records)
{
    std::vector<chart::DayValue> values;
    std::transform(records.begin(), records.end(), std::back_inserter(values), ValueOf);
    return values;
}

std::vector<chart::DayValue> MeasuredOf(const CompanyDay& day)
{
    std::vector<chart::DayValue> values = ValuesOf(day.instant);
    for (const chart::DayValue& hour : ValuesOf(day.actual)) {
        const bool isMeasured = std::any_of(day.instant.begin(), day.instant.end(), [&](const auto& record) {
            const int minute = MinuteOf(record.stStart);
            return minute >= hour.startMinute && minute < hour.startMinute + hour.lengthMinutes;
        });
        if (!isMeasured) {
            values.push_back(hour);
        }
    }
    std::stable_sort(values.begin(), values.end(),
                     [](const auto& left, const auto& right) { return left.startMinute < right.startMinute; });
    return values;
}

std::optional<chart::DayValue> ValueOf(const std::optional<_AmporaOneData>& record)
{
    return record ? std::optional(ValueOf(*record)) : std::nullopt;
}

std::string ClockText(int minute)
{
    return platform::EncodeUtf8(platform::FormatText(L"%d:%02d", minute / 60, minute % 60));
}

std::string PeakText(const std::string& name, const std::optional<chart::DayValue>& peak)
{
    return peak ? name + " " + chart::GroupDigits(peak->megawatts) + " MW, " + ClockText(peak->startMinute) + " - " +
                      ClockText(peak->startMinute + peak->lengthMinutes)
                : std::string();
}

std::string DescriptionOf(const std::vector<chart::DayValue>& measured)
{
    if (measured.empty()) {
        return "No demand has been measured.";
    }
    const auto [lowest, highest] =
        std::minmax_element(measured.begin(), measured.end(),
                            [](const auto& left, const auto& right) { return left.megawatts < right.megawatts; });
    return "Demand from " + ClockText(measured.front().startMinute) + " to " +
           ClockText(measured.back().startMinute + measured.back().lengthMinutes) + ", between " +
           chart::GroupDigits(lowest->megawatts) + " and " + chart::GroupDigits(highest->megawatts) + " MW.";
}

} // namespace

bool CompanyDay::HasFigures() const
{
    return !instant.empty() || !actual.empty() || !estimated.empty() || peakSupply || peakDemand;
}

CompanyDay DayOf(const catalogue::Company& company, const std::vector<KnownFile>& files, const SYSTEMTIME& day)
{
    CompanyDay result{company, day};
    for (const KnownFile& known : files) {
        if (known.company.siteNumber != company.siteNumber) {
            continue;
        }
        std::vector<_AmporaOneData> records = RecordsOf(known, day);
        const auto last = [&records] { return records.empty() ? std::nullopt : std::optional(records.back()); };
        switch (known.kind.dataType) {
        case catalogue::kInstantUsage:
            result.instant = std::move(records);
            break;
        case catalogue::kActualUsage:
            result.actual = std::move(records);
            break;
        case catalogue::kEstimatedUsage:
            result.estimated = std::move(records);
            break;
        case catalogue::kPeakSupply:
            result.peakSupply = last();
            break;
        default:
            result.peakDemand = last();
        }
    }
    return result;
}

chart::DayCurves CurvesOf(const CompanyDay& day, const SYSTEMTIME& now)
{
    return {.measured = MeasuredOf(day),
            .forecast = ValuesOf(day.estimated),
            .peakDemand = ValueOf(day.peakDemand),
            .peakSupply = ValueOf(day.peakSupply),
            .nowMinute = IsSameDay(day.day, now) ? std::optional(MinuteOf(now)) : std::nullopt};
}

chart::DayLabels LabelsOf(const CompanyDay& day, const SYSTEMTIME& now)
{
    return {.title = std::string(day.company.name.Narrow()) + ", " + platform::EncodeUtf8(DayText(day.day)),
            .description = DescriptionOf(MeasuredOf(day)),
            .unit = "MW",
            .measured = "demand",
            .forecast = "forecast",
            .peakDemand = PeakText("peak demand", ValueOf(day.peakDemand)),
            .peakSupply = PeakText("peak supply", ValueOf(day.peakSupply)),
            .now = "now " + ClockText(MinuteOf(now))};
}

} // namespace ctl
