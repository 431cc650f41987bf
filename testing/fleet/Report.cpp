#include "testing/fleet/Report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

namespace fleet {

namespace {

constexpr std::size_t kSecondsOfAMinute = 60;
constexpr std::size_t kMinutesOfAColumn = 15;
constexpr std::size_t kRows = 8;
constexpr std::size_t kLabelWidth = 11;

// The mean of each minute.
std::vector<double> Minutes(const std::vector<double>& seconds)
{
    std::vector<double> minutes;
    for (auto begin = seconds.begin(); begin != seconds.end(); begin += kSecondsOfAMinute) {
        minutes.push_back(std::accumulate(begin, begin + kSecondsOfAMinute, 0.0) / kSecondsOfAMinute);
    }
    return minutes;
}

double Sum(const std::vector<double>& numbers) { return std::accumulate(numbers.begin(), numbers.end(), 0.0); }

} // namespace

Summary Summarize(const Load& load)
{
    Summary summary;
    summary.passes = load.passes;
    summary.requests = Sum(load.requests);
    summary.refused = Sum(load.refused);
    const std::vector<double> minutes = Minutes(load.requests);
    const auto isBusy = [](double rate) { return rate > 0; };
    const auto first = std::find_if(minutes.begin(), minutes.end(), isBusy);
    const auto end = std::find_if(minutes.rbegin(), minutes.rend(), isBusy).base();
    const double seconds = static_cast<double>(std::max<std::ptrdiff_t>(end - first, 1)) * kSecondsOfAMinute;
    summary.mean = summary.requests / seconds;
    summary.originMean = Sum(load.origin) / seconds;
    summary.peakMinute = *std::max_element(minutes.begin(), minutes.end());
    const auto peak = std::max_element(load.requests.begin(), load.requests.end());
    summary.peakSecond = *peak;
    summary.peakTime = (peak - load.requests.begin()) * kSecondMs;
    summary.originPeak = *std::max_element(load.origin.begin(), load.origin.end());
    return summary;
}

void WriteCsv(std::ostream& out, const Load& load)
{
    const std::vector<double> requests = Minutes(load.requests);
    const std::vector<double> refused = Minutes(load.refused);
    const std::vector<double> origin = Minutes(load.origin);
    out << "time,requests_per_second,refused_per_second,origin_requests_per_second\n";
    for (std::size_t minute = 0; minute < requests.size(); ++minute) {
        char line[120]; // NOLINT(cppcoreguidelines-pro-type-member-init): filled at once
        std::snprintf(line, sizeof(line), "%02zu:%02zu,%.2f,%.2f,%.2f\n", minute / 60, minute % 60, requests[minute],
                      refused[minute], origin[minute]);
        out << line;
    }
}

std::string Picture(const Load& load)
{
    const std::vector<double> minutes = Minutes(load.requests);
    std::vector<double> columns;
    for (auto begin = minutes.begin(); begin != minutes.end(); begin += kMinutesOfAColumn) {
        columns.push_back(std::sqrt(*std::max_element(begin, begin + kMinutesOfAColumn)));
    }
    const double top = *std::max_element(columns.begin(), columns.end());
    std::string picture;
    for (std::size_t row = kRows; row > 0; --row) {
        const double level = top * static_cast<double>(row) / kRows;
        const std::string label = row % 2 == 0 ? NumberText(level * level) : "";
        std::string line = std::string(kLabelWidth - label.size(), ' ') + label + " |";
        for (const double column : columns) {
            line += column > 0 && column * kRows >= top * (static_cast<double>(row) - 0.5) ? '#' : ' ';
        }
        picture += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    std::string scale(kLabelWidth, ' ');
    picture += scale + " +" + std::string(columns.size(), '-') + "\n";
    scale += "  ";
    for (int hour = 0; hour < 24; hour += 3) {
        std::string text = std::to_string(hour) + ":00";
        scale += text + std::string(12 - text.size(), ' ');
    }
    return picture + scale.substr(0, scale.find_last_not_of(' ') + 1) + "\n";
}

std::string NumberText(double number)
{
    char text[40]; // NOLINT(cppcoreguidelines-pro-type-member-init): filled at once
    std::snprintf(text, sizeof(text), number < 10 && number != std::floor(number) ? "%.1f" : "%.0f", number);
    std::string grouped = text;
    if (grouped.find('.') == std::string::npos) {
        for (std::ptrdiff_t place = static_cast<std::ptrdiff_t>(grouped.size()) - 3; place > 0; place -= 3) {
            grouped.insert(static_cast<std::size_t>(place), ",");
        }
    }
    return grouped;
}

std::string TimeText(TimeMs time)
{
    char text[40]; // NOLINT(cppcoreguidelines-pro-type-member-init): filled at once
    const auto seconds = static_cast<long long>(time / kSecondMs);
    std::snprintf(text, sizeof(text), "%02lld:%02lld:%02lld", seconds / 3600, seconds / 60 % 60, seconds % 60);
    return text;
}

} // namespace fleet
