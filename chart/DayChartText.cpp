#include "chart/DayChartText.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace chart {
namespace {

constexpr int kMaxColumns = 150;
constexpr int kRightMargin = 3; // half of the label of 24:00
constexpr int kStepCount = 5;
constexpr int kEighths = 8; // of a row, which a bar may end at

// What a cell of the plot shows, in the order in which one hides another.
enum class Mark { kNone, kNow, kSupply, kPeakDemand, kBar, kForecast };

struct Symbols {
    std::array<std::string_view, kEighths + 1> bar; // by eighths of the row that it fills
    std::string_view forecast;
    std::string_view peak;
    std::string_view now;
    std::string_view axis; // upright, beside the plot
    std::string_view tick; // on it
    std::string_view base; // below the plot
    std::string_view hour; // a tick on it
    std::string_view corner;
};

constexpr Symbols kUnicode = {{" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"}, "•", "·", "│", "│", "┤", "─", "┬", "└"};
constexpr Symbols kAscii = {{" ", " ", " ", " ", "#", "#", "#", "#", "#"}, "o", ".", "|", "|", "+", "-", "+", "+"};

// The characters of a text that is UTF-8.
int LengthOf(std::string_view text)
{
    return static_cast<int>(std::count_if(text.begin(), text.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

std::string Blanks(int count) { return std::string(static_cast<std::size_t>(std::max(count, 0)), ' '); }

// Puts texts below the plot, as many into a line as fit, and one that is longer than a line where its words end.
class CCaption {
public:
    explicit CCaption(int columns) : m_columns(columns) {}

    // colour, off: around sign, which stands before text.
    void Add(std::string_view colour, std::string_view sign, std::string_view off, std::string_view text)
    {
        if (text.empty()) {
            return;
        }
        const int length = LengthOf(sign) + 1 + LengthOf(text);
        if (m_used > 0 && m_used + kGap + length > m_columns) {
            EndLine();
        } else if (m_used > 0) {
            m_text += Blanks(kGap);
            m_used += kGap;
        }
        m_text.append(colour).append(sign).append(off);
        m_used += LengthOf(sign);
        for (std::size_t start = 0; start < text.size();) {
            const std::size_t end = std::min(text.find(' ', start), text.size());
            AddWord(text.substr(start, end - start));
            start = end + 1;
        }
    }

    std::string Text()
    {
        if (m_used > 0) {
            EndLine();
        }
        return m_text;
    }

private:
    static constexpr int kGap = 3;

    void EndLine()
    {
        m_text += "\n";
        m_used = 0;
    }

    void AddWord(std::string_view word)
    {
        if (m_used + 1 + LengthOf(word) > m_columns) {
            EndLine();
        }
        m_text.append(m_used == 0 ? "  " : " ").append(word);
        m_used += (m_used == 0 ? 2 : 1) + LengthOf(word);
    }

    int m_columns;
    int m_used = 0;
    std::string m_text;
};

class CTextDrawing {
public:
    CTextDrawing(const DayCurves& curves, const DayLabels& labels, const TextOptions& options)
        : m_curves(curves), m_labels(labels), m_options(options), m_symbols(options.isUnicode ? kUnicode : kAscii),
          m_scale(ScaleOf(curves, std::min(kStepCount, options.rows / 2))),
          m_left(LengthOf(GroupDigits(m_scale.highest)) + 1),
          m_width(std::min(options.columns, kMaxColumns) - m_left - 1 - kRightMargin)
    {
        m_cells.assign(static_cast<std::size_t>(options.rows),
                       std::vector<Cell>(static_cast<std::size_t>(m_width), Cell{}));
    }

    std::string Draw()
    {
        MarkNow();
        MarkPeak(m_curves.peakSupply, Mark::kSupply, 0);
        MarkPeak(m_curves.peakDemand, Mark::kPeakDemand, 1);
        MarkBars();
        MarkForecast();
        std::string text = HeadLine();
        for (int row = m_options.rows - 1; row >= 0; --row) {
            text += Line(row);
        }
        return text + TimeAxis() + Legend();
    }

private:
    struct Cell {
        Mark mark = Mark::kNone;
        int eighths = 0; // of a bar
    };

    // Marks a cell of the plot unless something stands there that hides the mark. row: from the bottom.
    void Put(int row, int column, Cell cell)
    {
        Cell& present = m_cells[static_cast<std::size_t>(row)][static_cast<std::size_t>(column)];
        if (present.mark < cell.mark) {
            present = cell;
        }
    }

    // How many eighths of rows above 0 MW a value is.
    int HeightOf(std::int64_t megawatts) const
    {
        const std::int64_t value = std::clamp<std::int64_t>(megawatts, 0, m_scale.highest);
        return static_cast<int>((value * m_options.rows * kEighths + m_scale.highest / 2) / m_scale.highest);
    }

    // The row in which a bar of that height ends.
    int RowOf(std::int64_t megawatts) const { return std::max(HeightOf(megawatts) - 1, 0) / kEighths; }

    int ColumnOf(int minute) const { return std::clamp(minute * m_width / kDayMinutes, 0, m_width - 1); }

    // The mean of the values that touch the minutes of a column; none where no value does.
    std::optional<std::int64_t> MeanOf(const std::vector<DayValue>& values, int column) const
    {
        const int start = column * kDayMinutes / m_width;
        const int end = (column + 1) * kDayMinutes / m_width;
        std::int64_t sum = 0;
        std::int64_t count = 0;
        for (const DayValue& value : values) {
            if (value.startMinute < end && value.startMinute + std::int64_t{value.lengthMinutes} > start) {
                sum += std::clamp<std::int64_t>(value.megawatts, 0, m_scale.highest);
                ++count;
            }
        }
        return count == 0 ? std::nullopt : std::optional(sum / count);
    }

    void MarkNow()
    {
        for (int row = 0; m_curves.nowMinute && row < m_options.rows; ++row) {
            Put(row, ColumnOf(*m_curves.nowMinute), {Mark::kNow});
        }
    }

    // Peaks of the same row share it: phase says which of two columns is whose.
    void MarkPeak(const std::optional<DayValue>& peak, Mark mark, int phase)
    {
        for (int column = phase; peak && column < m_width; column += 2) {
            Put(RowOf(peak->megawatts), column, {mark});
        }
    }

    void MarkBars()
    {
        for (int column = 0; column < m_width; ++column) {
            const int height = HeightOf(MeanOf(m_curves.measured, column).value_or(0));
            for (int row = 0; row * kEighths < height; ++row) {
                Put(row, column, {Mark::kBar, std::min(height - row * kEighths, kEighths)});
            }
        }
    }

    void MarkForecast()
    {
        for (int column = 0; column < m_width; ++column) {
            if (const std::optional<std::int64_t> mean = MeanOf(m_curves.forecast, column)) {
                Put(RowOf(*mean), column, {Mark::kForecast});
            }
        }
    }

    std::pair<std::string_view, std::string_view> ColourAndSign(const Cell& cell) const
    {
        const TextColours& colours = m_options.colours;
        switch (cell.mark) {
        case Mark::kForecast:
            return {colours.forecast, m_symbols.forecast};
        case Mark::kBar:
            return {colours.measured, m_symbols.bar[static_cast<std::size_t>(cell.eighths)]};
        case Mark::kPeakDemand:
            return {colours.forecast, m_symbols.peak};
        case Mark::kSupply:
            return {colours.supply, m_symbols.peak};
        case Mark::kNow:
            return {colours.quiet, m_symbols.now};
        case Mark::kNone:
            break;
        }
        return {"", " "};
    }

    // Text of one colour.
    std::string Coloured(std::string_view colour, std::string_view text) const
    {
        return colour.empty() ? std::string(text) : std::string(colour).append(text).append(m_options.colours.off);
    }

    // The unit, and what stands above the line of the present minute.
    std::string HeadLine() const
    {
        std::string line = Blanks(m_left - 1 - LengthOf(m_labels.unit)) + m_labels.unit;
        if (m_curves.nowMinute && !m_labels.now.empty()) {
            const int length = LengthOf(m_labels.now);
            const int centre = m_left + 1 + ColumnOf(*m_curves.nowMinute);
            const int start = std::min(centre - length / 2, m_options.columns - length);
            line += Blanks(std::max(start - LengthOf(line), 1)) + m_labels.now;
        }
        return line + "\n";
    }

    std::string Line(int row) const
    {
        std::string label;
        for (std::int64_t value = m_scale.step; value <= m_scale.highest; value += m_scale.step) {
            label = RowOf(value) == row ? GroupDigits(value) : label;
        }
        std::string line = Blanks(m_left - 1 - LengthOf(label)) + label + " ";
        line += Coloured(m_options.colours.quiet, label.empty() ? m_symbols.axis : m_symbols.tick);
        std::string_view present;
        std::string run; // of one colour
        int blanks = 0;  // at its end
        for (const Cell& cell : m_cells[static_cast<std::size_t>(row)]) {
            const auto [colour, sign] = ColourAndSign(cell);
            if (sign == " ") {
                ++blanks;
                continue;
            }
            if (colour != present || blanks > 0) {
                line += Coloured(present, run) + Blanks(blanks);
                run.clear();
                blanks = 0;
                present = colour;
            }
            run += sign;
        }
        return line + Coloured(present, run) + "\n";
    }

    std::string TimeAxis() const
    {
        const int hours = m_width < 24 ? 12 : m_width < 60 ? 6 : 3;
        std::string base;
        std::string line = Blanks(m_left);
        int used = 0;
        for (int column = 0; column < m_width; ++column) {
            const int hour = (column * 24 + m_width - 1) / m_width; // the first that begins in this column or later
            const bool isTick = hour % hours == 0 && ColumnOf(hour * 60) == column;
            base += isTick ? m_symbols.hour : m_symbols.base;
        }
        for (int hour = 0; hour <= 24; hour += hours) {
            const std::string label = std::to_string(hour) + ":00";
            const int place = 1 + hour * m_width / 24 - static_cast<int>(label.size()) / 2;
            line += Blanks(place - used) + label;
            used = std::max(place, used) + static_cast<int>(label.size());
        }
        const std::string zero = Blanks(m_left - 2) + "0 ";
        return zero + Coloured(m_options.colours.quiet, std::string(m_symbols.corner) + base) + "\n" + line + "\n";
    }

    std::string Legend() const
    {
        const TextColours& colours = m_options.colours;
        const std::string peak = std::string(m_symbols.peak) + " " + std::string(m_symbols.peak);
        CCaption caption(m_options.columns);
        const auto add = [&](bool isShown, std::string_view colour, std::string_view sign, std::string_view text) {
            caption.Add(colour, sign, colour.empty() ? "" : colours.off, isShown ? text : "");
        };
        add(!m_curves.measured.empty(), colours.measured, m_symbols.bar.back(), m_labels.measured);
        add(!m_curves.forecast.empty(), colours.forecast, m_symbols.forecast, m_labels.forecast);
        add(m_curves.peakDemand.has_value(), colours.forecast, peak, m_labels.peakDemand);
        add(m_curves.peakSupply.has_value(), colours.supply, peak, m_labels.peakSupply);
        return caption.Text();
    }

    const DayCurves& m_curves;
    const DayLabels& m_labels;
    const TextOptions& m_options;
    const Symbols& m_symbols;
    ValueScale m_scale;
    int m_left;  // characters before the upright axis
    int m_width; // of the plot, in characters
    std::vector<std::vector<Cell>> m_cells;
};

} // namespace

std::string DayChartText(const DayCurves& curves, const DayLabels& labels, const TextOptions& options)
{
    if (options.columns < kMinTextColumns || options.rows < 4) {
        throw std::invalid_argument("a chart that is too small");
    }
    return CTextDrawing(curves, labels, options).Draw();
}

} // namespace chart
