#include "chart/DayChartSvg.h"

#include "chart/Markup.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <stdexcept>

namespace chart {
namespace {

constexpr double kFontSize = 12;
constexpr double kLineHeight = 18;
constexpr double kTickGap = 8;
constexpr double kEdge = 6;         // around a drawing that stands alone
constexpr double kRightMargin = 18; // half of the label of 24:00
constexpr double kBareMargin = 3;
constexpr int kBareStepCount = 100; // without axes the scale ends close to the highest value
constexpr double kSwatchWidth = 22;

// With one decimal at most, and a full stop in every locale.
std::string Coordinate(double value)
{
    std::array<char, 32> text{};
    const double rounded = std::round(value * 10) / 10;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), rounded).ptr;
    return {text.data(), end};
}

// About the width of a text, which only a reader's font decides: characters of three bytes and more are mostly as wide
// as they are high.
double WidthOf(std::string_view text)
{
    double width = 0;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x80) {
            width += 0.64;
        } else if (byte >= 0xE0) {
            width += 1;
        } else if (byte >= 0xC0) {
            width += 0.6;
        }
    }
    return width * kFontSize;
}

std::string Joined(std::string_view first, std::string_view second) { return std::string(first).append(second); }

struct LegendEntry {
    std::string_view style;
    std::string_view text;
    double x = 0;
    double y = 0;
};

class CDrawing {
public:
    CDrawing(const DayCurves& curves, const DayLabels& labels, const SvgOptions& options)
        : m_curves(curves), m_labels(labels), m_options(options)
    {
        m_scale = ScaleOf(curves, options.hasAxes ? std::clamp(options.height / 60, 2, 6) : kBareStepCount);
        m_left = m_top = kBareMargin;
        m_right = options.width - kBareMargin;
        m_bottom = options.height - kBareMargin;
        if (options.hasAxes) {
            PlaceAxes();
        }
    }
    std::string Draw()
    {
        const std::string box = "0 0 " + std::to_string(m_options.width) + " " + std::to_string(m_options.height);
        const std::string width = std::to_string(m_options.width);
        const std::string height = std::to_string(m_options.height);
        // "xmlns" does no harm within HTML, and a reader of the page as XML needs it.
        m_svg.Element("svg",
                      {{"xmlns", "http://www.w3.org/2000/svg"},
                       {"class", m_options.isStandAlone ? "day-chart stand-alone" : "day-chart"},
                       {"viewBox", box},
                       {"width", width},
                       {"height", height},
                       {"role", "img"},
                       {"aria-labelledby", Joined(m_options.id, "-title")},
                       {"aria-describedby", Joined(m_options.id, m_options.hasAxes ? "-description" : "-title")},
                       {"data-left", Coordinate(m_left)},
                       {"data-right", Coordinate(m_right)},
                       {"data-top", Coordinate(m_top)},
                       {"data-bottom", Coordinate(m_bottom)}},
                      [this] { DrawContent(); });
        return m_svg.Written();
    }

private:
    void PlaceAxes()
    {
        m_left = WidthOf(GroupDigits(m_scale.highest)) + kTickGap + (m_options.isStandAlone ? kEdge : 0);
        m_right = m_options.width - kRightMargin;
        m_top = kLineHeight + kTickGap;
        m_bottom = m_options.height - kLineHeight - 4;
        if (m_options.isStandAlone) {
            m_top += kEdge;
            PlaceLegend();
        }
    }

    void DrawContent()
    {
        m_svg.Element("title", {{"id", Joined(m_options.id, "-title")}}, m_labels.title);
        if (m_options.hasAxes) {
            m_svg.Element("desc", {{"id", Joined(m_options.id, "-description")}}, m_labels.description);
        }
        if (m_options.isStandAlone) {
            m_svg.Element("style", {}, kDayChartStyle);
            m_svg.Empty("rect", {{"class", "ground"}, {"width", "100%"}, {"height", "100%"}});
            DrawLegend();
        }
        if (m_options.hasAxes) {
            DrawValueAxis();
            DrawTimeAxis();
        }
        DrawArea(m_curves.measured);
        DrawLines(m_curves.yesterday, "line yesterday");
        DrawLines(m_curves.supply, "line supply");
        DrawLines(m_curves.forecast, "line forecast");
        DrawLines(m_curves.measured, "line measured");
        if (m_options.hasAxes) {
            DrawPeaks();
            DrawNow();
        }
    }

    double X(int minute) const { return m_left + (m_right - m_left) * minute / kDayMinutes; }
    double Y(std::int64_t megawatts) const
    {
        return m_bottom - (m_bottom - m_top) *
                              static_cast<double>(std::clamp<std::int64_t>(megawatts, 0, m_scale.highest)) /
                              static_cast<double>(m_scale.highest);
    }

    std::string Place(DayPoint point) const
    {
        return Coordinate(X(point.minute)) + " " + Coordinate(Y(point.megawatts));
    }

    std::string PathOf(const std::vector<DayPoint>& line) const
    {
        std::string path = "M" + Place(line.front());
        for (std::size_t i = 1; i < line.size(); ++i) {
            path += "L" + Place(line[i]);
        }
        // A single point shows as a dot: a line of no length with round ends.
        return line.size() == 1 ? path + "h0" : path;
    }

    void DrawLines(const std::vector<DayValue>& values, std::string_view style)
    {
        std::string path;
        for (const std::vector<DayPoint>& line : LinesOf(values)) {
            path += PathOf(line);
        }
        if (!path.empty()) {
            m_svg.Empty("path", {{"class", style}, {"d", path}});
        }
    }

    void DrawArea(const std::vector<DayValue>& values)
    {
        std::string path;
        for (const std::vector<DayPoint>& line : LinesOf(values)) {
            path += PathOf(line) + "L" + Place({line.back().minute, 0}) + "L" + Place({line.front().minute, 0}) + "Z";
        }
        if (!path.empty()) {
            m_svg.Empty("path", {{"class", "area"}, {"d", path}});
        }
    }

    void DrawStroke(std::string_view style, double fromX, double fromY, double toX, double toY)
    {
        m_svg.Empty("line", {{"class", style},
                             {"x1", Coordinate(fromX)},
                             {"y1", Coordinate(fromY)},
                             {"x2", Coordinate(toX)},
                             {"y2", Coordinate(toY)}});
    }

    void DrawText(std::string_view style, double x, double y, std::string_view text)
    {
        m_svg.Element("text", {{"class", style}, {"x", Coordinate(x)}, {"y", Coordinate(y)}}, text);
    }

    void DrawValueAxis()
    {
        for (std::int64_t value = 0; value <= m_scale.highest; value += m_scale.step) {
            DrawStroke(value == 0 ? "axis" : "grid", m_left, Y(value), m_right, Y(value));
            DrawText("tick before", m_left - kTickGap, Y(value) + kFontSize / 3, GroupDigits(value));
        }
        DrawText("tick before", m_left - kTickGap, m_top - kTickGap - 4, m_labels.unit);
    }

    void DrawTimeAxis()
    {
        const int hours = m_right - m_left < 420 ? 6 : 3;
        for (int hour = 0; hour <= 24; hour += hours) {
            const double x = X(hour * 60);
            DrawStroke("axis", x, m_bottom, x, m_bottom + 4);
            DrawText("tick middle", x, m_bottom + kLineHeight, std::to_string(hour) + ":00");
        }
    }

    // The label stands above its line, at night, when demand is low; below it where the line of the other peak is near.
    void DrawPeak(const std::optional<DayValue>& peak, std::string_view style, std::string_view label, bool isBelow)
    {
        if (!peak) {
            return;
        }
        const double y = Y(peak->megawatts);
        DrawStroke(Joined("peak ", style), m_left, y, m_right, y);
        if (peak->startMinute >= 0 && peak->startMinute < kDayMinutes) {
            const int end = std::min(peak->startMinute + std::max(peak->lengthMinutes, 0), kDayMinutes);
            DrawStroke(Joined("peak-hour ", style), X(peak->startMinute), y, X(end), y);
        }
        DrawText(Joined("label ", style), m_left + 6, isBelow ? y + kFontSize + 3 : y - 6, label);
    }

    void DrawPeaks()
    {
        bool isDemandBelow = false;
        bool isSupplyBelow = false;
        if (m_curves.peakDemand && m_curves.peakSupply) {
            const double gap = Y(m_curves.peakDemand->megawatts) - Y(m_curves.peakSupply->megawatts);
            isDemandBelow = gap >= 0 && gap < kLineHeight + 4;
            isSupplyBelow = gap < 0 && gap > -kLineHeight - 4;
        }
        DrawPeak(m_curves.peakSupply, "supply", m_labels.peakSupply, isSupplyBelow);
        DrawPeak(m_curves.peakDemand, "forecast", m_labels.peakDemand, isDemandBelow);
    }

    void DrawNow()
    {
        if (!m_curves.nowMinute) {
            return;
        }
        const int minute = std::clamp(*m_curves.nowMinute, 0, kDayMinutes);
        const double x = X(minute);
        DrawStroke("now", x, m_top - 4, x, m_bottom);
        const bool isLate = x + WidthOf(m_labels.now) > m_right;
        DrawText(isLate ? "label before" : "label", x + (isLate ? 4 : -4), m_top - kTickGap - 4, m_labels.now);
    }

    void AddLegendEntry(const std::vector<DayValue>& values, std::string_view style, std::string_view text, double& x)
    {
        if (values.empty()) {
            return;
        }
        const double width = kSwatchWidth + 6 + WidthOf(text) + 18;
        if (x > m_left && x + width > m_options.width) {
            x = m_left;
            m_top += kLineHeight;
        }
        m_legend.push_back({style, text, x, m_top - kTickGap});
        x += width;
    }

    void PlaceLegend()
    {
        double x = m_left;
        AddLegendEntry(m_curves.measured, "line measured", m_labels.measured, x);
        AddLegendEntry(m_curves.forecast, "line forecast", m_labels.forecast, x);
        AddLegendEntry(m_curves.supply, "line supply", m_labels.supply, x);
        AddLegendEntry(m_curves.yesterday, "line yesterday", m_labels.yesterday, x);
        if (!m_legend.empty()) {
            m_top += kLineHeight;
        }
    }

    void DrawLegend()
    {
        for (const LegendEntry& entry : m_legend) {
            DrawStroke(entry.style, entry.x, entry.y - 4, entry.x + kSwatchWidth, entry.y - 4);
            DrawText("label", entry.x + kSwatchWidth + 6, entry.y, entry.text);
        }
    }

    const DayCurves& m_curves;
    const DayLabels& m_labels;
    const SvgOptions& m_options;
    ValueScale m_scale;
    double m_left = 0;
    double m_right = 0;
    double m_top = 0;
    double m_bottom = 0;
    std::vector<LegendEntry> m_legend;
    CMarkup m_svg;
};

} // namespace

std::string DayChartSvg(const DayCurves& curves, const DayLabels& labels, const SvgOptions& options)
{
    if (options.width < (options.hasAxes ? 240 : 60) || options.height < (options.hasAxes ? 160 : 20)) {
        throw std::invalid_argument("a chart that is too small");
    }
    return CDrawing(curves, labels, options).Draw();
}

} // namespace chart
