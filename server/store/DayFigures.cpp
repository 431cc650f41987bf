#include "server/store/DayFigures.h"

#include <limits>
#include <stdexcept>
#include <string>

namespace reportd {

namespace {

std::chrono::minutes MinuteOfDay(const ReportRecord& record)
{
    return std::chrono::floor<std::chrono::minutes>(record.start - std::chrono::floor<std::chrono::days>(record.start));
}

} // namespace

std::chrono::local_days CheckedDayOf(const Figure& figure)
{
    const SeriesInfo& info = InfoOf(figure.series);
    const ReportRecord& record = figure.record;
    const auto day = std::chrono::floor<std::chrono::days>(record.start);
    const std::chrono::seconds step = info.isPeak ? std::chrono::minutes(1) : info.length;
    if ((record.start - day) % step != std::chrono::seconds(0) || record.end - record.start != info.length) {
        throw std::invalid_argument("a figure is at no interval of " + std::string(info.key));
    }
    if (record.value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        throw std::invalid_argument("a value of " + std::string(info.key) + " is too large to be stored");
    }
    return day;
}

void CDayFigures::Know(const FigureRow& row)
{
    for (std::size_t index = 0; index < kFigurePlaces.size(); ++index) {
        const FigurePlace& place = kFigurePlaces.at(index);
        const std::optional<std::int64_t>& value = row.values.at(place.column);
        if (place.table != row.table || !value) {
            continue;
        }
        const bool isPeak = InfoOf(place.series).isPeak;
        const Value known{row.stamp, *value, isPeak ? row.values.at(place.column + 1).value_or(0) : 0};
        const auto [latest, isFirst] = m_latest.try_emplace({index, row.slot}, known);
        if (!isFirst && latest->second.stamp < row.stamp) {
            latest->second = known;
        }
    }
}

void CDayFigures::Take(const Figure& figure, const FigureStamp& stamp, bool onlyGaps)
{
    const SeriesInfo& info = InfoOf(figure.series);
    const std::chrono::minutes minute = MinuteOfDay(figure.record);
    const Interval interval{PlaceIndexOf(figure.series), SlotOf(info, minute)};
    Value value{stamp, static_cast<std::int64_t>(figure.record.value), info.isPeak ? minute.count() : 0};
    const auto known = m_latest.find(interval);
    if (known != m_latest.end()) {
        const Value& latest = known->second;
        const bool isSame = latest.value == value.value && latest.minute == value.minute;
        if (isSame || (onlyGaps && !m_news.contains(interval))) {
            return;
        }
        // Of the same stamp the one that came last is the latest, even if the host's clock has jumped back meanwhile.
        if (latest.stamp.published == stamp.published) {
            value.stamp = std::max(value.stamp, latest.stamp);
        }
    }
    m_latest[interval] = value;
    m_news[interval] = value;
}

std::vector<FigureRow> CDayFigures::NewRows() const
{
    std::map<std::tuple<std::size_t, std::int64_t, FigureStamp>, RowValues> rows;
    for (const auto& [interval, value] : m_news) {
        const FigurePlace& place = kFigurePlaces.at(interval.first);
        RowValues& values = rows[{place.table, interval.second, value.stamp}];
        values.at(place.column) = value.value;
        if (InfoOf(place.series).isPeak) {
            values.at(place.column + 1) = value.minute;
        }
    }
    std::vector<FigureRow> result;
    result.reserve(rows.size());
    for (const auto& [key, values] : rows) {
        result.push_back({std::get<0>(key), std::get<1>(key), std::get<2>(key), values});
    }
    return result;
}

std::uint32_t CDayFigures::NewKinds() const
{
    std::uint32_t kinds = 0;
    for (const auto& [interval, value] : m_news) {
        kinds |= static_cast<std::uint32_t>(kFigurePlaces.at(interval.first).series);
    }
    return kinds;
}

} // namespace reportd
