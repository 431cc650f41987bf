#include "testing/published/Generator.h"

#include "format/Catalogue.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <stdexcept>
#include <unicode/ucnv.h>
#include <unicode/unistr.h>

namespace testing_support {
namespace {

using reportd::Figure;
using reportd::InfoOf;
using reportd::LocalTime;
using reportd::Series;

// How a company writes its file. Headings are as published: widths and parentheses are its own.
struct Style {
    Layout layout;
    const char* name;
    int siteNumber;
    int highest;          // demand of the year's highest moment, in 10 MW, as every value here
    minutes instantDelay; // from a measurement to its publication
    minutes tomorrowFrom; // when tomorrow's peaks are filled in
    bool hasSupply;       // in the hourly table
    bool hasSolar;
    bool hasWind;
    bool hasPaddedDates;
    bool hasJapaneseDates; // in the blocks of the peaks
    const char* noActual;  // for an hour that has not ended
    const char* noInstant;
    const char* noTomorrow;
    const char* peakSupply;
    const char* peakDemand;
    const char* hourly;  // columns after DATE and TIME
    const char* columns; // what these are: actual, forecast, usage rate, supply
    const char* instant; // columns after DATE and TIME
};

constexpr std::array kStyles = {
    Style{Layout::kTokyoD1, "TokyoD1", catalogue::kTokyo, 5900, minutes{0}, hours{17} + minutes{30}, true, true, false,
          false, false, "0", "", ",,,,,", "ピーク時供給力(万kW)", "予想最大電力(万kW)",
          "当日実績(万kW),予測値(万kW),使用率(%),供給力(万kW)", "afus",
          "当日実績(５分間隔値)(万kW),太陽光発電実績(５分間隔値)(万kW),太陽光発電量（需要に対する割合）(%)"},
    Style{Layout::kTokyoS1, "TokyoS1", catalogue::kTokyo, 5900, minutes{0}, hours{17} + minutes{30}, true, true, false,
          false, false, "0", "", ",,,,,", "ピーク時供給力(万kW)", "予想最大電力(万kW)",
          "当日実績(万kW),予測値(万kW),供給力(万kW),使用率(%)", "afsu",
          "当日実績(５分間隔値)(万kW),太陽光発電実績(５分間隔値)(万kW)"},
    Style{
        Layout::kTohoku, "Tohoku", catalogue::kTohoku, 1450, minutes{5}, hours{16} + minutes{40}, true, true, true,
        false, true, "0", "", ",,,,,", "ピーク時供給力（万ｋＷ）", "予想最大電力（万ｋＷ）",
        "当日実績（万ｋＷ）,予測値（万ｋＷ）,使用率（％）,供給力予測値（万ｋＷ）", "afus",
        "当日実績（５分間隔値）（万ｋＷ）,太陽光発電実績（５分間隔値）（万ｋＷ）,風力発電実績（５分間隔値）（万ｋＷ）"},
    Style{Layout::kChubu, "Chubu", catalogue::kChubu, 2550, minutes{5}, hours{17}, true, true, false, false, false, "",
          "", "0,0:00～1:00,4/1,0:00", "需要ピーク時供給力(万kW)", "需要予想最大電力(万kW)",
          "当日実績(万kW),需要電力予測値(万kW),使用率(%),供給力想定値(万kW)", "afus",
          "当日実績(5分間隔値)(万kW),太陽光発電実績(5分間隔値)(万kW)"},
    Style{Layout::kKansai, "Kansai", catalogue::kKansai, 2750, minutes{20}, hours{18}, true, true, false, true, false,
          "0", "", ",,,,,", "ピーク時供給力(万kW)", "予想最大電力(万kW)",
          "当日実績(万kW),予想値(万kW),使用率(%),供給力予測値(万kW)", "afus",
          "当日実績(５分間隔値)(万kW),太陽光発電実績(５分間隔値)(万kW)"},
    Style{Layout::kKansaiOld, "KansaiOld", catalogue::kKansai, 2750, minutes{20}, hours{18}, false, false, false, true,
          false, "0", "", ",,,,,", "ピーク時供給力(万kW)", "予想最大電力(万kW)",
          "当日実績(万kW),予想値(万kW),使用率(%)", "afu", "当日実績(５分間隔値)(万kW)"},
    Style{Layout::kKyushu, "Kyushu", catalogue::kKyushu, 1650, minutes{5}, hours{16} + minutes{30}, true, true, false,
          false, false, "0", "0", "0,0:00～1:00,4/1,0:00", "ピーク時供給力(万kW）", "予想最大電力(万kW）",
          "当日実績(万kW）,予測値(万kW）,使用率(％）,供給力(万kW）", "afus",
          "当日実績(５分間隔値）(万kW）,太陽光発電実績(５分間隔値）(万kW）"},
};

const Style& StyleOf(Layout layout)
{
    return *std::find_if(kStyles.begin(), kStyles.end(), [layout](const Style& s) { return s.layout == layout; });
}

constexpr minutes kInstantLength{5};
constexpr minutes kHourlyDelay{6}; // from the end of an hour to its publication

// One file: whose, of which day, as of when.
struct Day {
    const Style& style;
    local_days date;
    LocalTime published;
    unsigned revision;
};

// From -range to range, different for each slot of each company's day (xorshift over a product of primes).
int Scatter(const Style& style, local_days date, int slot, int range)
{
    std::uint32_t bits = static_cast<std::uint32_t>(date.time_since_epoch().count()) * 2654435761U +
                         static_cast<std::uint32_t>(style.highest) * 40503U + static_cast<std::uint32_t>(slot) * 7919U;
    for (int round = 0; round < 3; ++round) {
        bits ^= bits << 13U;
        bits ^= bits >> 17U;
        bits ^= bits << 5U;
    }
    return static_cast<int>(bits % static_cast<std::uint32_t>(2 * range + 1)) - range;
}

// Demand without scatter: a parabola with its top at 14:30.
int Expected(const Style& style, int minute)
{
    const int fromTop = minute - 870;
    return style.highest * (960 - 380 * fromTop / 870 * fromTop / 870) / 1000;
}

int DemandAt(const Day& day, int minute)
{
    const int revised = minute % 35 == 0 ? static_cast<int>(day.revision) * 12 : 0; // seen in the hour as well
    return Expected(day.style, minute) * (1000 + Scatter(day.style, day.date, minute, 8)) / 1000 + revised;
}

int DemandOf(const Day& day, int hour)
{
    int sum = 0;
    for (int minute = hour * 60; minute < hour * 60 + 60; minute += 5) {
        sum += DemandAt(day, minute);
    }
    return sum / 12;
}

// How often the forecast of a date has been renewed by the moment of publication: in the evening before, and at 5:30,
// 9:30, 13:30 of the day.
int StageOf(const Day& day, local_days date)
{
    const minutes into = std::chrono::floor<minutes>(day.published - date);
    return int{into >= minutes{330}} + int{into >= minutes{570}} + int{into >= minutes{810}};
}

int ForecastOf(const Day& day, local_days date, int hour)
{
    const int slot = 2000 + 100 * StageOf(day, date) + hour;
    return Expected(day.style, hour * 60 + 30) * (1000 + Scatter(day.style, date, slot, 15)) / 1000;
}

int SupplyOf(const Day& day, local_days date, int hour)
{
    const int slot = 3000 + 100 * StageOf(day, date) + hour;
    return ForecastOf(day, date, hour) * (1110 + Scatter(day.style, date, slot, 40)) / 1000;
}

// 0 at night.
int SolarAt(const Day& day, int minute)
{
    const int fromNoon = minute - 720;
    return std::max(0, day.style.highest * (1000 - fromNoon * fromNoon / 130) / 4000);
}

int WindAt(const Day& day, int minute)
{
    return day.style.highest / 20 + Scatter(day.style, day.date, 5000 + minute, day.style.highest / 40);
}

bool IsMeasured(const Day& day, int minute)
{
    return day.date + minutes{minute} + day.style.instantDelay <= day.published;
}

bool HasEnded(const Day& day, int hour) { return day.date + hours{hour + 1} + kHourlyDelay <= day.published; }

bool KnowsTomorrow(const Day& day) { return day.published - day.date >= day.style.tomorrowFrom; }

int PeakHour(const Day& day, local_days date)
{
    int best = 0;
    for (int hour = 1; hour < 24; ++hour) {
        best = ForecastOf(day, date, hour) > ForecastOf(day, date, best) ? hour : best;
    }
    return best;
}

// The highest moment lies a little above the highest hour's mean.
int PeakDemand(const Day& day, local_days date)
{
    return ForecastOf(day, date, PeakHour(day, date)) + 5 + Scatter(day.style, date, 4000, 5);
}

int PeakSupply(const Day& day, local_days date) { return SupplyOf(day, date, PeakHour(day, date)); }

// --- The figures.

Figure MakeFigure(Series series, LocalTime start, int value)
{
    return {.series = series,
            .record = {start, start + InfoOf(series).length, static_cast<std::uint64_t>(value) * 10U}};
}

void AppendMeasured(const Day& day, Series series, const std::function<int(const Day&, int)>& valueAt,
                    std::vector<Figure>& figures)
{
    for (int minute = 0; minute < 24 * 60 && IsMeasured(day, minute); minute += 5) {
        figures.push_back(MakeFigure(series, day.date + minutes{minute}, valueAt(day, minute)));
    }
}

void AppendPeak(const Day& day, Series series, const std::function<int(const Day&, local_days)>& valueOf,
                std::vector<Figure>& figures)
{
    for (local_days date = day.date; date <= day.date + days{KnowsTomorrow(day) ? 1 : 0}; date += days{1}) {
        figures.push_back(MakeFigure(series, date + hours{PeakHour(day, date)}, valueOf(day, date)));
    }
}

// --- The text.

std::string ClockText(int minute)
{
    const std::string text = std::to_string(minute % 60);
    return std::to_string(minute / 60) + (text.size() < 2 ? ":0" : ":") + text;
}

std::string Padded(unsigned number, bool isPadded)
{
    return (isPadded && number < 10 ? "0" : "") + std::to_string(number);
}

std::string DateText(const Style& style, local_days day)
{
    const year_month_day date{day};
    return std::to_string(static_cast<int>(date.year())) + "/" +
           Padded(static_cast<unsigned>(date.month()), style.hasPaddedDates) + "/" +
           Padded(static_cast<unsigned>(date.day()), style.hasPaddedDates);
}

std::string ShortDateText(const Style& style, LocalTime moment)
{
    const year_month_day date{std::chrono::floor<days>(moment)};
    const std::string month = std::to_string(static_cast<unsigned>(date.month()));
    const std::string day = std::to_string(static_cast<unsigned>(date.day()));
    return style.hasJapaneseDates ? month + "月" + day + "日" : month + "/" + day;
}

std::string MomentText(const Day& day)
{
    const local_days date = std::chrono::floor<days>(day.published);
    return DateText(day.style, date) + " " +
           ClockText(static_cast<int>(std::chrono::floor<minutes>(day.published - date).count()));
}

// When a forecast was renewed last, as two cells.
std::string RenewedText(const Day& day)
{
    constexpr std::array kMinutes = {0, 330, 570, 810};
    const int minute = kMinutes.at(static_cast<std::size_t>(StageOf(day, day.date)));
    return ShortDateText(day.style, day.date) + "," + ClockText(minute);
}

std::string SlotText(int hour) { return ClockText(hour * 60) + "～" + ClockText(hour * 60 + 60); }

int Percent(int part, int whole) { return (part * 100 + whole / 2) / whole; }

// A block's heading from that of its value, whose renewal has a name of its own.
std::string BlockHeading(const std::string& value, const std::string& renewed)
{
    return value + ",時間帯," + renewed + "情報更新日," + renewed + "情報更新時刻";
}

// The blocks of one day: today's, or tomorrow's with a prefix. The rate's peak lies two hours after the demand's.
std::string PeakBlocks(const Day& day, bool isTomorrow)
{
    const std::string prefix = isTomorrow ? "翌日の" : "";
    const local_days date = day.date + days{isTomorrow ? 1 : 0};
    const bool isFilled = !isTomorrow || KnowsTomorrow(day);
    const int demand = PeakDemand(day, date);
    const int supply = PeakSupply(day, date);
    const int rateHour = std::min(23, PeakHour(day, date) + 2);
    const auto row = [&](int value, int hour, const std::string& rest) {
        return isFilled ? std::to_string(value) + "," + SlotText(hour) + "," + RenewedText(day) + rest
                        : std::string(day.style.noTomorrow);
    };
    const std::string rates =
        "," + std::to_string(Percent(supply - demand, demand)) + "," + std::to_string(Percent(demand, supply));
    std::string text = BlockHeading(prefix + day.style.peakSupply, "供給力") +
                       ",ピーク時予備率(%),ピーク時使用率(%)\n" + row(supply, PeakHour(day, date), rates) + "\n\n" +
                       BlockHeading(prefix + day.style.peakDemand, "予想最大電力") + "\n" +
                       row(demand, PeakHour(day, date), "") + "\n\n";
    if (day.style.layout == Layout::kKansaiOld) {
        return text;
    }
    return text + BlockHeading(prefix + "使用率ピーク時供給力(万kW)", "供給力") + "\n" +
           row(SupplyOf(day, date, rateHour), rateHour, "") + "\n\n" +
           BlockHeading(prefix + "使用率ピーク時予想電力(万kW)", "予想最大電力") + "\n" +
           row(ForecastOf(day, date, rateHour), rateHour, "") + "\n\n";
}

std::string HourlyCell(const Day& day, char column, int hour)
{
    const int actual = DemandOf(day, hour);
    const int forecast = ForecastOf(day, day.date, hour);
    const int supply = SupplyOf(day, day.date, hour);
    switch (column) {
    case 'a':
        return HasEnded(day, hour) ? std::to_string(actual) : day.style.noActual;
    case 'f':
        return std::to_string(forecast);
    case 's':
        return std::to_string(supply);
    default:
        return std::to_string(Percent(HasEnded(day, hour) ? actual : forecast, supply));
    }
}

std::string HourlyTable(const Day& day)
{
    std::string text = "DATE,TIME," + std::string(day.style.hourly) + "\n";
    for (int hour = 0; hour < 24; ++hour) {
        text += DateText(day.style, day.date) + "," + ClockText(hour * 60);
        for (const char column : std::string_view(day.style.columns)) {
            text += "," + HourlyCell(day, column, hour);
        }
        text += "\n";
    }
    return text + "\n";
}

std::string InstantTable(const Day& day)
{
    std::string text = "DATE,TIME," + std::string(day.style.instant) + "\n";
    const bool hasShare = day.style.layout == Layout::kTokyoD1;
    for (int minute = 0; minute < 24 * 60; minute += 5) {
        const bool isMeasured = IsMeasured(day, minute);
        const auto cell = [&](int value) { return "," + (isMeasured ? std::to_string(value) : day.style.noInstant); };
        text += DateText(day.style, day.date) + "," + ClockText(minute) + cell(DemandAt(day, minute)) +
                (day.style.hasSolar ? cell(SolarAt(day, minute)) : "") +
                (day.style.hasWind ? cell(WindAt(day, minute)) : "") +
                (hasShare ? cell(Percent(SolarAt(day, minute), DemandAt(day, minute))) : "") + "\n";
    }
    return text;
}

// What a layout has before its hourly table and nobody else does.
std::string ExtraBlocks(const Day& day)
{
    if (day.style.layout == Layout::kKansaiOld) {
        return "本日の最高気温(℃),前日の最高気温(℃),昨年の最高気温(℃)\n*,25,27\n\n翌日の最高気温(℃)\n*\n\n";
    }
    if (day.style.layout != Layout::kTokyoS1) {
        return "";
    }
    // Tables of other days, whose columns have the names of today's.
    std::string text = "DATE,TIME,曜日,当日実績(万kW),供給力(万kW)\n";
    for (int hour = 0; hour < 24; ++hour) {
        text += DateText(day.style, day.date - days{1}) + "," + ClockText(hour * 60) + ",月," +
                std::to_string(DemandOf(day, hour) + 17) + "," + std::to_string(SupplyOf(day, day.date, hour) + 23) +
                "\n";
    }
    return text + "\n今季最大電力(万kW),記録日\n5930,7/29\n\n";
}

std::string TextOf(const Day& day)
{
    return MomentText(day) + " UPDATE\n" + PeakBlocks(day, false) + ExtraBlocks(day) + HourlyTable(day) +
           "最大使用率(%),時間帯\n" + std::to_string(Percent(PeakDemand(day, day.date), PeakSupply(day, day.date))) +
           "," + SlotText(PeakHour(day, day.date)) + "\n\n" + PeakBlocks(day, true) + InstantTable(day) + "\n";
}

Day DayOf(Layout layout, year_month_day date, LocalTime published, unsigned revision)
{
    if (published < local_days{date}) {
        throw std::invalid_argument("published before the day began");
    }
    return {.style = StyleOf(layout), .date = local_days{date}, .published = published, .revision = revision};
}

// --- Damage.

void ReplaceAll(std::string& text, const std::string& from, const std::string& to)
{
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

// Lines from the hourly table's heading up to its last row.
void ChangeHourlyRows(const Style& style, std::string& text,
                      const std::function<void(std::vector<std::string>&)>& change)
{
    const std::size_t first = text.find("DATE,TIME," + std::string(style.hourly));
    const std::size_t last = text.find("\n\n", first);
    std::string changed;
    for (std::size_t at = first; at < last;) {
        const std::size_t end = text.find('\n', at);
        std::vector<std::string> cells(1);
        for (const char c : text.substr(at, end - at)) {
            if (c == ',') {
                cells.emplace_back();
            } else {
                cells.back() += c;
            }
        }
        change(cells);
        for (std::size_t i = 0; i < cells.size(); ++i) {
            changed += (i == 0 ? "" : ",") + cells[i];
        }
        changed += "\n";
        at = end + 1;
    }
    text.replace(first, last + 1 - first, changed);
}

// Puts text into the forecast of 7:00.
void ChangeOneValue(const Style& style, std::string& text, const std::string& value)
{
    ChangeHourlyRows(style, text, [&](std::vector<std::string>& cells) {
        if (cells[1] == "7:00") {
            cells[3] = value;
        }
    });
}

void DamageText(const Style& style, Damage damage, std::string& text)
{
    switch (damage) {
    case Damage::kSwappedColumns:
        ChangeHourlyRows(style, text,
                         [](std::vector<std::string>& cells) { std::reverse(cells.begin() + 2, cells.end()); });
        break;
    case Damage::kNewColumn:
        ChangeHourlyRows(style, text, [](std::vector<std::string>& cells) {
            cells.insert(cells.begin() + 3, cells[0] == "DATE" ? "蓄電池(万kW)" : "12");
        });
        break;
    case Damage::kNegative:
        ChangeOneValue(style, text, "-3100");
        break;
    case Damage::kAbsurd:
        ChangeOneValue(style, text, "31000000");
        break;
    case Damage::kNotANumber:
        ChangeOneValue(style, text, "未定");
        break;
    case Damage::kMalformedTime:
        ReplaceAll(text, ",23:00,", ",25:00,");
        break;
    case Damage::kUnknownLayout:
        ReplaceAll(text, "DATE,TIME,", "日付,時刻,");
        break;
    default:
        break;
    }
}

// The whole of the company's day before.
std::string DayBefore(Layout layout, local_days day)
{
    return PublishedCsv(layout, year_month_day{day - days{1}}, LocalTime{day} + minutes{70});
}

std::string StampedLater(const Day& day, std::string text)
{
    const std::size_t end = text.find('\n');
    Day later = day;
    later.published += days{1};
    return text.replace(0, end, MomentText(later) + " UPDATE");
}

std::string PaddedText(const std::string& text)
{
    std::string padded = text;
    ReplaceAll(padded, "\n", ",,,\n");
    return padded;
}

} // namespace

std::string NameOf(Layout layout) { return StyleOf(layout).name; }

int SiteNumberOf(Layout layout) { return StyleOf(layout).siteNumber; }

std::string PublishedText(Layout layout, year_month_day date, LocalTime published, unsigned revision)
{
    return TextOf(DayOf(layout, date, published, revision));
}

std::string Changed(std::string text, const std::string& from, const std::string& to)
{
    const std::size_t at = text.find(from);
    if (at == std::string::npos) {
        throw std::invalid_argument("not in the text: " + from);
    }
    return text.replace(at, from.size(), to);
}

std::string AsPublished(const std::string& text)
{
    std::string lines = text;
    ReplaceAll(lines, "\n", "\r\n");
    const icu::UnicodeString units = icu::UnicodeString::fromUTF8(lines);
    UErrorCode status = U_ZERO_ERROR;
    const icu::LocalUConverterPointer converter(ucnv_open("ibm-943_P15A-2003", &status));
    ucnv_setFromUCallBack(converter.getAlias(), UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    std::string bytes(2 * static_cast<std::size_t>(units.length()) + 1, '\0');
    const std::int32_t length =
        ucnv_fromUChars(converter.getAlias(), bytes.data(), static_cast<std::int32_t>(bytes.size()), units.getBuffer(),
                        units.length(), &status);
    if (U_FAILURE(status)) {
        throw std::runtime_error(std::string("not to be said in Shift_JIS: ") + u_errorName(status));
    }
    bytes.resize(static_cast<std::size_t>(length));
    return bytes;
}

std::string PublishedCsv(Layout layout, year_month_day date, LocalTime published, const CsvOptions& options)
{
    const local_days day{date};
    switch (options.damage) {
    case Damage::kEmpty:
        return "";
    case Damage::kHtml:
        return "<!DOCTYPE html>\r\n<html><head><title>Maintenance</title></head><body>Come back "
               "later.</body></html>\r\n";
    case Damage::kOtherDay:
        return DayBefore(layout, day);
    case Damage::kFrozen:
        return PublishedCsv(layout, date, std::max<LocalTime>(day, published - hours{6}));
    default:
        break;
    }
    const Day known = DayOf(layout, date, published, options.revision);
    std::string text = TextOf(known);
    DamageText(known.style, options.damage, text);
    if (options.damage == Damage::kFutureStamp) {
        text = StampedLater(known, text);
    }
    if (options.hasPadding) {
        text = PaddedText(text);
    }
    std::string bytes = options.damage == Damage::kUtf8 ? text : AsPublished(text);
    if (options.hasLfOnly) {
        ReplaceAll(bytes, "\r\n", "\n");
    }
    return options.damage == Damage::kTruncated ? bytes.substr(0, options.cutAt) : bytes;
}

std::vector<Figure> TrueFigures(Layout layout, year_month_day date, LocalTime published, unsigned revision)
{
    const Day day = DayOf(layout, date, published, revision);
    std::vector<Figure> figures;
    AppendMeasured(day, Series::kInstantUsage, DemandAt, figures);
    for (int hour = 0; hour < 24 && HasEnded(day, hour); ++hour) {
        figures.push_back(MakeFigure(Series::kActualUsage, day.date + hours{hour}, DemandOf(day, hour)));
    }
    for (int hour = 0; hour < 24; ++hour) {
        figures.push_back(MakeFigure(Series::kEstimatedUsage, day.date + hours{hour}, ForecastOf(day, day.date, hour)));
    }
    AppendPeak(day, Series::kPeakSupply, PeakSupply, figures);
    AppendPeak(day, Series::kPeakDemand, PeakDemand, figures);
    for (int hour = 0; hour < 24 && day.style.hasSupply; ++hour) {
        figures.push_back(MakeFigure(Series::kSupply, day.date + hours{hour}, SupplyOf(day, day.date, hour)));
    }
    if (day.style.hasSolar) {
        AppendMeasured(day, Series::kSolar, SolarAt, figures);
    }
    if (day.style.hasWind) {
        AppendMeasured(day, Series::kWind, WindAt, figures);
    }
    return figures;
}

} // namespace testing_support
