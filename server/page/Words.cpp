#include "server/page/Words.h"

#include "chart/DayChart.h"

#include <limits>

namespace reportd {
namespace {

constexpr unsigned kHighestStable = 920;
constexpr unsigned kHighestLittleTight = 950;
constexpr unsigned kHighestTight = 970;

std::string TwoDigits(unsigned number) { return (number < 10 ? "0" : "") + std::to_string(number); }

TextId After(TextId first, unsigned steps) { return static_cast<TextId>(static_cast<unsigned>(first) + steps); }

minutes MinuteOfDay(LocalTime time)
{
    return std::chrono::floor<minutes>(time - std::chrono::floor<std::chrono::days>(time));
}

std::string HoursAndMinutes(minutes time)
{
    return std::to_string(time / minutes{60}) + ":" + TwoDigits(static_cast<unsigned>((time % minutes{60}).count()));
}

} // namespace

UsageBand BandOf(unsigned tenths)
{
    if (tenths <= kHighestStable) {
        return UsageBand::kStable;
    }
    if (tenths <= kHighestLittleTight) {
        return UsageBand::kLittleTight;
    }
    return tenths <= kHighestTight ? UsageBand::kTight : UsageBand::kVeryTight;
}

std::string_view NameOf(UsageBand band, Language language)
{
    return TextOf(After(TextId::kBandStable, static_cast<unsigned>(band)), language);
}

std::string_view StyleOf(UsageBand band)
{
    switch (band) {
    case UsageBand::kStable:
        return "stable";
    case UsageBand::kLittleTight:
        return "little-tight";
    case UsageBand::kTight:
        return "tight";
    default:
        return "very-tight";
    }
}

std::string_view CompanyName(int siteNumber, Language language)
{
    switch (siteNumber) {
    case catalogue::kTokyo:
        return TextOf(TextId::kTokyo, language);
    case catalogue::kTohoku:
        return TextOf(TextId::kTohoku, language);
    case catalogue::kChubu:
        return TextOf(TextId::kChubu, language);
    case catalogue::kKansai:
        return TextOf(TextId::kKansai, language);
    default:
        return TextOf(TextId::kKyushu, language);
    }
}

std::string DateText(std::chrono::year_month_day date, Language language)
{
    const auto weekday = std::chrono::weekday(local_days(date)).iso_encoding();
    return Filled(TextId::kDate, language,
                  {std::to_string(static_cast<int>(date.year())),
                   TextOf(After(TextId::kJanuary, static_cast<unsigned>(date.month()) - 1), language),
                   std::to_string(static_cast<unsigned>(date.day())),
                   TextOf(After(TextId::kMonday, weekday - 1), language)});
}

std::string ClockText(LocalTime time) { return HoursAndMinutes(MinuteOfDay(time)); }

std::string IntervalText(LocalTime start, LocalTime end, Language language)
{
    const bool endsWithDay = end > start && MinuteOfDay(end) == minutes{0};
    return Filled(TextId::kHour, language, {ClockText(start), endsWithDay ? "24:00" : ClockText(end)});
}

std::string NumberText(std::uint64_t megawatts)
{
    constexpr auto kHighest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    return chart::GroupDigits(static_cast<std::int64_t>(std::min(megawatts, kHighest)));
}

std::string MegawattText(std::uint64_t megawatts, Language language)
{
    return Filled(TextId::kMegawatts, language, {NumberText(megawatts)});
}

std::string RateNumber(unsigned tenths) { return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10); }

std::string RateText(unsigned tenths, Language language)
{
    return Filled(TextId::kPercent, language, {RateNumber(tenths)});
}

std::string AgeText(std::chrono::seconds age, Language language)
{
    const auto wholeMinutes = age / minutes{1};
    const auto wholeHours = age / std::chrono::hours{1};
    const auto wholeDays = age / std::chrono::days{1};
    if (wholeMinutes < 1) {
        return std::string(TextOf(TextId::kJustNow, language));
    }
    if (wholeHours < 1) {
        return Filled(wholeMinutes == 1 ? TextId::kMinuteAgo : TextId::kMinutesAgo, language,
                      {std::to_string(wholeMinutes)});
    }
    if (wholeDays < 2) {
        return Filled(wholeHours == 1 ? TextId::kHourAgo : TextId::kHoursAgo, language, {std::to_string(wholeHours)});
    }
    return Filled(TextId::kDaysAgo, language, {std::to_string(wholeDays)});
}

} // namespace reportd
