#include "server/page/Texts.h"

#include <array>

namespace reportd {
namespace {

struct Entry {
    TextId text;
    std::string_view english;
    std::string_view japanese;
};

constexpr std::array kTexts = {
    Entry{TextId::kSiteTitle, "Electricity demand and supply", "電力の需給状況"},
    Entry{TextId::kSkip, "Skip to the figures", "本文へ移動"},
    Entry{TextId::kOtherLanguage, "日本語", "English"},
    Entry{TextId::kSampleData, "Sample data: computed, not measured.",
          "サンプルデータです。計算で作られた値であり、実測値ではありません。"},
    Entry{TextId::kRenewalFailed, "This page could not be renewed. It is tried again every minute.",
          "ページを更新できませんでした。1分ごとに再試行します。"},
    Entry{TextId::kJapanTime, "Times are Japan's. A value of 14:55 was measured at 14:55.",
          "時刻は日本時間です。14:55の値は14:55に測定されたものです。"},
    Entry{TextId::kAbout, "The figures are published by the companies and belong to them.",
          "数値は各電力会社が公表したもので、権利は各社に帰属します。"},
    Entry{TextId::kCompanies, "All companies", "全社一覧"},
    Entry{TextId::kTokyo, "Tokyo Electric Power", "東京電力"},
    Entry{TextId::kTohoku, "Tohoku Electric Power", "東北電力"},
    Entry{TextId::kChubu, "Chubu Electric Power", "中部電力"},
    Entry{TextId::kKansai, "Kansai Electric Power", "関西電力"},
    Entry{TextId::kKyushu, "Kyushu Electric Power", "九州電力"},
    Entry{TextId::kAsOf, "{0}, {1}", "{0} {1}現在"},
    Entry{TextId::kDate, "{3}, {2} {1} {0}", "{0}年{1}{2}日（{3}）"},
    Entry{TextId::kMonday, "Monday", "月"},
    Entry{TextId::kTuesday, "Tuesday", "火"},
    Entry{TextId::kWednesday, "Wednesday", "水"},
    Entry{TextId::kThursday, "Thursday", "木"},
    Entry{TextId::kFriday, "Friday", "金"},
    Entry{TextId::kSaturday, "Saturday", "土"},
    Entry{TextId::kSunday, "Sunday", "日"},
    Entry{TextId::kJanuary, "January", "1月"},
    Entry{TextId::kFebruary, "February", "2月"},
    Entry{TextId::kMarch, "March", "3月"},
    Entry{TextId::kApril, "April", "4月"},
    Entry{TextId::kMay, "May", "5月"},
    Entry{TextId::kJune, "June", "6月"},
    Entry{TextId::kJuly, "July", "7月"},
    Entry{TextId::kAugust, "August", "8月"},
    Entry{TextId::kSeptember, "September", "9月"},
    Entry{TextId::kOctober, "October", "10月"},
    Entry{TextId::kNovember, "November", "11月"},
    Entry{TextId::kDecember, "December", "12月"},
    Entry{TextId::kHour, "{0}–{1}", "{0}～{1}"},
    Entry{TextId::kMegawatts, "{0} MW", "{0} MW"},
    Entry{TextId::kMegawattUnit, "MW", "MW"},
    Entry{TextId::kPercent, "{0} %", "{0}％"},
    Entry{TextId::kMissing, "–", "－"},
    Entry{TextId::kMissingMeaning, "no value", "値なし"},
    Entry{TextId::kUsageRate, "Usage rate", "使用率"},
    Entry{TextId::kUsageRateOfHour, "Usage rate of {0}", "{0}の使用率"},
    Entry{TextId::kUsageRateUnknown, "Usage rate not known", "使用率は不明です"},
    Entry{TextId::kBandStable, "Stable", "安定"},
    Entry{TextId::kBandLittleTight, "A little tight", "やや厳しい"},
    Entry{TextId::kBandTight, "Tight", "厳しい"},
    Entry{TextId::kBandVeryTight, "Very tight", "非常に厳しい"},
    Entry{TextId::kNewestDemand, "Newest demand", "最新の需要"},
    Entry{TextId::kNoDemand, "No value since yesterday", "昨日以降の値がありません"},
    Entry{TextId::kMeasuredAt, "at {0}, {1}", "{0}測定、{1}"},
    Entry{TextId::kMeanOf, "mean of {0}, {1}", "{0}の平均、{1}"},
    Entry{TextId::kToday, "Today", "本日"},
    Entry{TextId::kTomorrow, "Tomorrow", "翌日"},
    Entry{TextId::kPeakDemand, "Peak demand", "予想最大需要"},
    Entry{TextId::kPeakSupply, "Supply at peak", "ピーク時供給力"},
    Entry{TextId::kNotPublished, "not published yet", "未公表"},
    Entry{TextId::kJustNow, "just now", "たった今"},
    Entry{TextId::kMinuteAgo, "1 minute ago", "1分前"},
    Entry{TextId::kMinutesAgo, "{0} minutes ago", "{0}分前"},
    Entry{TextId::kHourAgo, "1 hour ago", "1時間前"},
    Entry{TextId::kHoursAgo, "{0} hours ago", "{0}時間前"},
    Entry{TextId::kDaysAgo, "{0} days ago", "{0}日前"},
    Entry{TextId::kPublished, "Published {0}", "公表 {0}"},
    Entry{TextId::kConfirmed, "confirmed {0}", "確認 {0}"},
    Entry{TextId::kAge, " ({0})", "（{0}）"},
    Entry{TextId::kComma, ", ", "、"},
    Entry{TextId::kNotCurrent, "Not up to date", "最新ではありません"},
    Entry{TextId::kNothingReceived, "Nothing received for this day", "この日のデータは未受信です"},
    Entry{TextId::kComputed, "Sample data", "サンプルデータ"},
    Entry{TextId::kDayOf, "{0}, {1}", "{0} {1}"},
    Entry{TextId::kDayBefore, "Day before", "前の日"},
    Entry{TextId::kDayAfter, "Day after", "次の日"},
    Entry{TextId::kChooseDay, "Day", "日付"},
    Entry{TextId::kShow, "Show", "表示"},
    Entry{TextId::kHighestRate, "Highest usage rate", "最大使用率"},
    Entry{TextId::kChartTitle, "Demand and supply of {0} on {1}", "{0}の需給 {1}"},
    Entry{TextId::kChartDescription,
          "Demand every 5 minutes up to {0}, from {1} to {2} MW. The tables below hold every value.",
          "{0}までの5分ごとの需要。最小{1} MW、最大{2} MW。全ての値は下の表にあります。"},
    Entry{TextId::kChartDescriptionEmpty, "No measured demand. The tables below hold every value.",
          "需要の実績値はありません。全ての値は下の表にあります。"},
    Entry{TextId::kSparkTitle, "Demand and supply today", "本日の需要と供給力"},
    Entry{TextId::kDemand, "Demand", "需要"},
    Entry{TextId::kDayBeforeCurve, "Demand of the day before", "前日の需要"},
    Entry{TextId::kForecast, "Forecast", "予想"},
    Entry{TextId::kActual, "Actual", "実績"},
    Entry{TextId::kSupply, "Supply", "供給力"},
    Entry{TextId::kSolar, "Solar", "太陽光"},
    Entry{TextId::kWind, "Wind", "風力"},
    Entry{TextId::kPeakDemandLabel, "Peak demand {0} MW", "予想最大需要 {0} MW"},
    Entry{TextId::kPeakSupplyLabel, "Supply at peak {0} MW", "ピーク時供給力 {0} MW"},
    Entry{TextId::kNowLabel, "Now {0}", "現在 {0}"},
    Entry{TextId::kReadHint, "Point at the chart, or select it and press the arrow keys, to read its values.",
          "グラフにポインターを合わせるか、選択して矢印キーを押すと値が表示されます。"},
    Entry{TextId::kReadLabel, "Read the chart at a time", "時刻を選んで値を読む"},
    Entry{TextId::kHourlyTable, "Values by hour", "1時間ごとの値"},
    Entry{TextId::kInstantTable, "Values every 5 minutes", "5分ごとの値"},
    Entry{TextId::kInstantSummary, "Values every 5 minutes ({0})", "5分ごとの値（{0}件）"},
    Entry{TextId::kTime, "Time", "時刻"},
    Entry{TextId::kDownload, "Download as CSV", "CSVでダウンロード"},
    Entry{TextId::kBandLegend,
          "Usage rate: demand as a share of the supply of the same hour. Up to 92 % stable, up to 95 % a little tight, "
          "up to "
          "97 % tight, above that very tight.",
          "使用率は同じ時間帯の供給力に対する需要の割合です。92％以下は安定、95％以下はやや厳しい、97％以下は厳しい、97"
          "％超は非"
          "常に厳しい。"},
    Entry{TextId::kNoFigures, "There are no figures for this day.", "この日の数値はありません。"},
    Entry{TextId::kNoFiguresYet, "There are no figures for this day yet.", "この日の数値はまだありません。"},
};

constexpr bool AreInOrder()
{
    for (std::size_t i = 0; i < kTexts.size(); ++i) {
        if (static_cast<std::size_t>(kTexts[i].text) != i) {
            return false;
        }
    }
    return kTexts.size() == static_cast<std::size_t>(TextId::kCount);
}
static_assert(AreInOrder(), "each text once, in the order of TextId");

} // namespace

std::string_view TextOf(TextId text, Language language)
{
    const Entry& entry = kTexts.at(static_cast<std::size_t>(text));
    return language == Language::kJapanese ? entry.japanese : entry.english;
}

std::string Filled(TextId text, Language language, std::initializer_list<std::string_view> values)
{
    const std::string_view pattern = TextOf(text, language);
    std::string filled;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const bool isPlace = pattern[i] == '{' && i + 2 < pattern.size() && pattern[i + 2] == '}';
        const auto number = isPlace ? static_cast<std::size_t>(pattern[i + 1] - '0') : values.size();
        if (number < values.size()) {
            filled += values.begin()[number];
            i += 2;
        } else {
            filled += pattern[i];
        }
    }
    return filled;
}

} // namespace reportd
