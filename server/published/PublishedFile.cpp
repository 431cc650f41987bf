#include "server/published/PublishedFile.h"

#include "server/published/Cells.h"
#include "server/published/Headings.h"
#include "server/published/PlainText.h"

#include <algorithm>
#include <set>
#include <utility>

namespace reportd {
namespace {

// Far above what is published: some 10 KB, 350 lines, 6 columns.
constexpr std::size_t kMaxBytes = std::size_t{1024} * 1024;
constexpr std::size_t kMaxLines = 10000;
constexpr std::size_t kMaxCells = 64;
constexpr std::size_t kMaxCellBytes = 1000; // folding takes the square of the length of a run of combining marks
constexpr std::size_t kMaxHeadings = 256;
constexpr std::size_t kMaxHeadingBytes = 200; // beyond it is prose

constexpr std::int64_t kMegawattsPerUnit = 10;
// Half as much again as the largest of the companies ever carried, some 64,000 MW.
constexpr std::int64_t kMaxValue = 10000;

constexpr std::string_view kBlanks = " \t\r\n";

// A line's cells, folded, without empty ones at its end: a line of commas has none.
struct Line {
    std::size_t number = 0; // from 1
    std::vector<std::string> cells;

    // Empty beyond the last one.
    const std::string& At(std::size_t column) const
    {
        static const std::string kNone;
        return column < cells.size() ? cells[column] : kNone;
    }
    bool IsBlank() const { return cells.empty(); }
};

// At most 16 characters of a cell, between quotation marks.
std::string Quoted(std::string_view cell)
{
    std::size_t end = 0;
    for (std::size_t characters = 0; end < cell.size(); ++end) {
        const bool isFirstByte = (static_cast<unsigned char>(cell[end]) & 0xC0U) != 0x80U;
        characters += isFirstByte ? 1 : 0;
        if (characters > 16) {
            return "\"" + std::string(cell.substr(0, end)) + "...\"";
        }
    }
    return "\"" + std::string(cell) + "\"";
}

[[noreturn]] void Refuse(Refusal reason, const Line& line, const std::string& why)
{
    throw CRefusedFile(reason, "line " + std::to_string(line.number) + ": " + why);
}

std::string ClockText(minutes time)
{
    const std::string minute = std::to_string(time.count() % 60);
    return std::to_string(time.count() / 60) + (minute.size() < 2 ? ":0" : ":") + minute;
}

Line SplitLine(std::size_t number, std::string_view text)
{
    Line line{.number = number, .cells = {}};
    text = text.substr(0, text.find_last_not_of(", \t\r") + 1);
    while (!text.empty()) {
        const std::size_t comma = text.find(',');
        if (std::min(comma, text.size()) > kMaxCellBytes) {
            Refuse(Refusal::kUnknownLayout, line, "a cell of more than " + std::to_string(kMaxCellBytes) + " bytes");
        }
        line.cells.push_back(FoldCell(text.substr(0, comma)));
        text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
        if (line.cells.size() > kMaxCells) {
            Refuse(Refusal::kUnknownLayout, line, "more than " + std::to_string(kMaxCells) + " columns");
        }
    }
    while (!line.cells.empty() && line.cells.back().empty()) {
        line.cells.pop_back(); // a blank of another kind
    }
    return line;
}

// text: ends with a line end.
std::vector<Line> SplitLines(std::string_view text)
{
    std::vector<Line> lines;
    while (!text.empty()) {
        if (lines.size() == kMaxLines) {
            throw CRefusedFile(Refusal::kUnknownLayout, "more than " + std::to_string(kMaxLines) + " lines");
        }
        const std::size_t end = text.find('\n');
        lines.push_back(SplitLine(lines.size() + 1, text.substr(0, end)));
        text.remove_prefix(end + 1);
    }
    return lines;
}

// Whether it is a web page, in whatever encoding: nothing else begins with an angle bracket.
bool IsMarkup(std::string_view bytes)
{
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    if (bytes.starts_with(kMark)) {
        bytes.remove_prefix(kMark.size());
    }
    const std::size_t start = bytes.find_first_not_of(kBlanks);
    return start != std::string_view::npos && bytes[start] == '<';
}

// The text up to a number of bytes, without half a character at its end.
std::string_view Beginning(std::string_view text, std::size_t size)
{
    while (size < text.size() && (static_cast<unsigned char>(text[size]) & 0xC0U) == 0x80U) {
        --size; // text begins with a whole character
    }
    return text.substr(0, size);
}

// The moment of the first line, "2026/4/20 14:55 UPDATE". text: from that line on.
LocalTime ParseStamp(std::string_view text)
{
    constexpr std::size_t kMaxStampBytes = 100;
    const std::string_view first = Beginning(text.substr(0, text.find_first_of("\r\n")), kMaxStampBytes);
    const std::size_t dateEnd = std::min(first.find(' '), first.size());
    const std::size_t timeStart = std::min(first.find_first_not_of(' ', dateEnd), first.size());
    const std::size_t timeEnd = std::min(first.find(' ', timeStart), first.size());
    if (FoldCell(first.substr(timeEnd, first.find_last_not_of(", ") + 1 - timeEnd)) != "UPDATE") {
        throw CRefusedFile(Refusal::kNoStamp, "it begins with " + Quoted(FoldCell(first)) + ", not with its stamp");
    }
    const auto date = DateOf(FoldCell(first.substr(0, dateEnd)));
    const auto time = TimeOf(FoldCell(first.substr(timeStart, timeEnd - timeStart)));
    if (!date || !time) {
        throw CRefusedFile(Refusal::kMalformedTime, "its stamp " + Quoted(FoldCell(first)) + " is no moment");
    }
    return local_days{*date} + *time;
}

// The columns of a table that are kept.
struct Table {
    std::size_t date = 0;
    std::size_t time = 0;
    std::vector<std::pair<std::size_t, Series>> values;
    minutes length{0}; // of its intervals
    std::size_t columns = 0;
};

// A block of one row with a peak.
struct PeakBlock {
    Meaning meaning;
    std::size_t value = 0;
    std::size_t slot = 0;
};

bool IsInTable(const Meaning& meaning) { return meaning.column == Column::kValue && !InfoOf(meaning.series).isPeak; }

// Whether a cell reads as the name of something, not as a value, a time or a mark.
bool IsName(std::string_view cell) { return cell.find_first_not_of("0123456789/:~%.*+-") != std::string_view::npos; }

// A heading with a date in it would make every day another layout.
std::string WithoutDate(const std::string& heading)
{
    constexpr std::string_view kMonth = "月";
    const std::size_t month = heading.find(kMonth);
    const bool hasMonth = month != std::string::npos && month > 0 && heading.find_first_of("0123456789") < month &&
                          heading.find("日", month) != std::string::npos;
    if (!hasMonth && heading.find('/') == std::string::npos) {
        return heading;
    }
    std::string without;
    for (const char c : heading) {
        const bool isDigit = c >= '0' && c <= '9';
        if (!isDigit) {
            without += c;
        } else if (without.empty() || without.back() != '#') {
            without += '#';
        }
    }
    return without;
}

// Reads one file from its first line to its last.
class CFileReader {
public:
    CFileReader(std::vector<Line> lines, LocalTime published, const ExtraHeadings& extra)
        : m_lines(std::move(lines)), m_headings(extra)
    {
        m_file.published = published;
    }

    PublishedFile Read();

private:
    bool IsAtEnd() const { return m_next == m_lines.size(); }
    std::vector<Meaning> MeaningsOf(const Line& line) const;
    void NoteHeadings(const Line& line, const std::vector<Meaning>& meanings);
    bool IsHeading(const Line& line) const;
    // Whether the block goes on with the next line.
    bool IsWithinBlock() const { return !IsAtEnd() && !m_lines[m_next].IsBlank() && !IsHeading(m_lines[m_next]); }
    void ReadBlock();
    void SkipRows();
    void ReadTable(const Line& heading, const std::vector<Meaning>& meanings);
    const Line& NextRow(const Line& heading, const Table& table, minutes due);
    std::size_t ShiftOf(const Line& row, const Table& table, minutes due);
    void KeepRow(const Line& row, std::size_t shift, const Table& table, minutes time);
    void KeepDate(const Line& row, std::chrono::year_month_day date);
    void RefuseFurtherRow(const Table& table) const;
    void ReadPeak(const Line& heading, const PeakBlock& block);
    void KeepPeak(const Line& row, std::size_t shift, const PeakBlock& block);
    void PlacePeaks();

    const std::vector<Line> m_lines;
    std::size_t m_next = 1; // the first line is the stamp
    const CHeadings m_headings;
    PublishedFile m_file;
    bool m_hasTable = false;    // of whatever kind
    std::set<minutes> m_tables; // that were read, by the length of their intervals
    std::map<std::pair<Series, bool>, std::pair<hours, std::int64_t>> m_peaks; // by series and whether it is tomorrow's
};

std::vector<Meaning> CFileReader::MeaningsOf(const Line& line) const
{
    std::vector<Meaning> meanings;
    meanings.reserve(line.cells.size());
    for (const std::string& cell : line.cells) {
        meanings.push_back(IsName(cell) ? m_headings.Of(cell) : Meaning{.column = Column::kAside});
    }
    return meanings;
}

bool Has(const std::vector<Meaning>& meanings, Column column)
{
    return std::any_of(meanings.begin(), meanings.end(), [column](const Meaning& m) { return m.column == column; });
}

std::size_t Find(const std::vector<Meaning>& meanings, Column column)
{
    return static_cast<std::size_t>(
        std::find_if(meanings.begin(), meanings.end(), [column](const Meaning& m) { return m.column == column; }) -
        meanings.begin());
}

void CFileReader::NoteHeadings(const Line& line, const std::vector<Meaning>& meanings)
{
    for (std::size_t i = 0; i < line.cells.size(); ++i) {
        const std::string& cell = line.cells[i];
        if (!IsName(cell) || cell.size() > kMaxHeadingBytes) {
            continue;
        }
        if (m_file.headings.size() == kMaxHeadings) {
            Refuse(Refusal::kUnknownLayout, line, "more than " + std::to_string(kMaxHeadings) + " headings");
        }
        m_file.headings.push_back(WithoutDate(cell));
        if (meanings[i].column == Column::kUnknown) {
            m_file.unknown.push_back(m_file.headings.back());
        }
    }
}

// Whether a new block begins here, which ends the one before.
bool CFileReader::IsHeading(const Line& line) const
{
    const std::vector<Meaning> meanings = MeaningsOf(line);
    return Has(meanings, Column::kValue) || (Has(meanings, Column::kDate) && Has(meanings, Column::kTime));
}

// Reads the block that begins with the next line, which is not blank.
void CFileReader::ReadBlock()
{
    const Line& heading = m_lines[m_next++];
    const std::vector<Meaning> meanings = MeaningsOf(heading);
    NoteHeadings(heading, meanings);
    if (Has(meanings, Column::kDate) && Has(meanings, Column::kTime)) {
        ReadTable(heading, meanings);
        return;
    }
    const auto isPeak = [](const Meaning& m) { return m.column == Column::kValue && InfoOf(m.series).isPeak; };
    const auto peak = std::find_if(meanings.begin(), meanings.end(), isPeak);
    if (peak != meanings.end() && Has(meanings, Column::kSlot)) {
        if (std::count_if(meanings.begin(), meanings.end(), isPeak) > 1) {
            Refuse(Refusal::kUnknownLayout, heading, "two peaks in one block");
        }
        ReadPeak(heading, {.meaning = *peak,
                           .value = static_cast<std::size_t>(peak - meanings.begin()),
                           .slot = Find(meanings, Column::kSlot)});
        return;
    }
    SkipRows();
}

// Passes over what is not ours.
void CFileReader::SkipRows()
{
    while (IsWithinBlock()) {
        ++m_next;
    }
}

// What is kept of a table with this heading. Refuses columns that contradict each other.
Table TableOf(const Line& heading, const std::vector<Meaning>& meanings)
{
    Table table{.date = Find(meanings, Column::kDate),
                .time = Find(meanings, Column::kTime),
                .values = {},
                .columns = heading.cells.size()};
    for (std::size_t i = 0; i < meanings.size(); ++i) {
        if (!IsInTable(meanings[i])) {
            continue;
        }
        const Series series = meanings[i].series;
        const auto isSame = [series](const auto& column) { return column.second == series; };
        if (std::any_of(table.values.begin(), table.values.end(), isSame)) {
            Refuse(Refusal::kUnknownLayout, heading, Quoted(heading.At(i)) + " stands for what another column holds");
        }
        if (table.length != minutes{0} && table.length != InfoOf(series).length) {
            Refuse(Refusal::kUnknownLayout, heading, "columns of hours and of five minutes in one table");
        }
        table.length = InfoOf(series).length;
        table.values.emplace_back(i, series);
    }
    return table;
}

void CFileReader::ReadTable(const Line& heading, const std::vector<Meaning>& meanings)
{
    m_hasTable = true;
    // A table with weekdays holds other days to compare with, below the names of today's columns.
    const Table table = Has(meanings, Column::kWeekday) ? Table{} : TableOf(heading, meanings);
    if (table.values.empty()) {
        SkipRows();
        return;
    }
    if (!m_tables.insert(table.length).second) {
        Refuse(Refusal::kUnknownLayout, heading, "a second table of the same kind");
    }
    for (minutes due{0}; due < days{1}; due += table.length) {
        const Line& row = NextRow(heading, table, due);
        KeepRow(row, ShiftOf(row, table, due), table, due);
    }
    RefuseFurtherRow(table);
}

// Whether this line has a row's time at the place of the table's, or one further when it begins with a note.
bool LooksLikeRow(const Line& line, const Table& table, std::size_t shift)
{
    return line.At(table.time + shift).find(':') != std::string::npos;
}

// The table's row that is due. Notes may stand before the first one.
const Line& CFileReader::NextRow(const Line& heading, const Table& table, minutes due)
{
    while (IsWithinBlock()) {
        const Line& line = m_lines[m_next++];
        if (due != minutes{0} || LooksLikeRow(line, table, 0) || LooksLikeRow(line, table, 1)) {
            return line;
        }
    }
    Refuse(Refusal::kTruncated, heading, "the table has no row of " + ClockText(due));
}

// How far the row is moved by a note before it. Refuses a row that is not the one that is due.
std::size_t CFileReader::ShiftOf(const Line& row, const Table& table, minutes due)
{
    const std::size_t shift = !LooksLikeRow(row, table, 0) && LooksLikeRow(row, table, 1) ? 1 : 0;
    const std::string& dateCell = row.At(table.date + shift);
    const auto date = DateOf(dateCell);
    if (!date) {
        Refuse(Refusal::kMalformedTime, row, Quoted(dateCell) + " is no date");
    }
    KeepDate(row, *date);
    const std::string& timeCell = row.At(table.time + shift);
    if (TimeOf(timeCell) != due) {
        Refuse(Refusal::kMalformedTime, row, Quoted(timeCell) + " where " + ClockText(due) + " is due");
    }
    // A value with a comma in it would otherwise move all that follow it.
    if (row.cells.size() > table.columns + shift) {
        Refuse(Refusal::kUnknownLayout, row, "more values than the table has columns");
    }
    return shift;
}

void CFileReader::KeepDate(const Line& row, std::chrono::year_month_day date)
{
    if (m_tables.size() == 1 && !m_file.date.ok()) {
        m_file.date = date;
    }
    if (date != m_file.date) {
        Refuse(Refusal::kMalformedTime, row, "rows of two days");
    }
}

// What a cell says: none when it is empty.
std::optional<std::int64_t> ValueOf(const Line& row, std::size_t column)
{
    const std::string& cell = row.At(column);
    if (cell.empty()) {
        return {};
    }
    const auto value = WholeNumber(cell);
    if (!value || *value < 0 || *value > kMaxValue) {
        Refuse(Refusal::kImplausibleValue, row, Quoted(cell) + " is no value from 0 to " + std::to_string(kMaxValue));
    }
    return value;
}

Figure MakeFigure(Series series, LocalTime start, std::int64_t value)
{
    return {.series = series,
            .record = {start, start + InfoOf(series).length, static_cast<std::uint64_t>(value * kMegawattsPerUnit)}};
}

bool IsGeneration(Series series) { return series == Series::kSolar || series == Series::kWind; }

void CFileReader::KeepRow(const Line& row, std::size_t shift, const Table& table, minutes time)
{
    const LocalTime start = local_days{m_file.date} + time;
    std::vector<Figure> generation;
    bool hasDemand = false;
    for (const auto& [column, series] : table.values) {
        const auto value = ValueOf(row, column + shift);
        if (value && IsGeneration(series)) {
            generation.push_back(MakeFigure(series, start, *value));
            continue;
        }
        const bool isMeasuredLater = (series == Series::kActualUsage && start + table.length > m_file.published) ||
                                     (series == Series::kInstantUsage && start > m_file.published);
        if (!value || *value == 0 || isMeasuredLater) {
            continue;
        }
        hasDemand = hasDemand || series == Series::kInstantUsage;
        m_file.figures.push_back(MakeFigure(series, start, *value));
    }
    if (hasDemand) {
        m_file.figures.insert(m_file.figures.end(), generation.begin(), generation.end());
    }
}

// A complete table ends with a blank line, another block or the file.
void CFileReader::RefuseFurtherRow(const Table& table) const
{
    if (IsWithinBlock() && (LooksLikeRow(m_lines[m_next], table, 0) || LooksLikeRow(m_lines[m_next], table, 1))) {
        Refuse(Refusal::kMalformedTime, m_lines[m_next], "a row more than the day has intervals");
    }
}

// Whether the line is a peak's row, perhaps moved by a note before it: it has a value or a slot at its place.
bool LooksLikePeak(const Line& line, const PeakBlock& block, std::size_t shift)
{
    const std::string& value = line.At(block.value + shift);
    return (!value.empty() && !IsName(value)) || line.At(block.slot + shift).find(':') != std::string::npos;
}

void CFileReader::ReadPeak(const Line& heading, const PeakBlock& block)
{
    if (!IsAtEnd() && m_lines[m_next].IsBlank()) {
        return; // not filled in yet
    }
    while (IsWithinBlock()) {
        const Line& line = m_lines[m_next++];
        for (const std::size_t shift : {std::size_t{0}, std::size_t{1}}) {
            if (LooksLikePeak(line, block, shift)) {
                KeepPeak(line, shift, block);
                return;
            }
        }
    }
    Refuse(Refusal::kTruncated, heading, "the block has no row");
}

void CFileReader::KeepPeak(const Line& row, std::size_t shift, const PeakBlock& block)
{
    const auto value = ValueOf(row, block.value + shift);
    if (!value || *value == 0) {
        return; // not known yet, whatever its slot says
    }
    const std::string& slotCell = row.At(block.slot + shift);
    const auto slot = SlotOf(slotCell);
    if (!slot) {
        Refuse(Refusal::kMalformedTime, row, Quoted(slotCell) + " is no hour of a day");
    }
    const std::pair key{block.meaning.series, block.meaning.isTomorrow};
    const std::pair peak{*slot, *value};
    if (m_peaks.emplace(key, peak).first->second != peak) {
        Refuse(Refusal::kUnknownLayout, row, "another value of the same peak");
    }
}

// A peak's row tells no year, so that its day is known only once the tables are.
void CFileReader::PlacePeaks()
{
    for (const auto& [key, peak] : m_peaks) {
        const LocalTime start = local_days{m_file.date} + (key.second ? days{1} : days{0}) + peak.first;
        m_file.figures.push_back(MakeFigure(key.first, start, peak.second));
    }
}

PublishedFile CFileReader::Read()
{
    while (!IsAtEnd()) {
        if (m_lines[m_next].IsBlank()) {
            ++m_next;
        } else {
            ReadBlock();
        }
    }
    if (m_tables.empty()) {
        if (!m_hasTable && m_file.unknown.empty()) {
            throw CRefusedFile(Refusal::kTruncated, "it ends before any table");
        }
        throw CRefusedFile(Refusal::kUnknownLayout, "no table has headings that we know");
    }
    PlacePeaks();
    std::sort(m_file.figures.begin(), m_file.figures.end(), [](const Figure& a, const Figure& b) {
        return std::pair(a.series, a.record.start) < std::pair(b.series, b.record.start);
    });
    return std::move(m_file);
}

} // namespace

std::string_view KeyOf(Refusal reason)
{
    switch (reason) {
    case Refusal::kEmpty:
        return "empty";
    case Refusal::kHtml:
        return "html";
    case Refusal::kNotText:
        return "not_text";
    case Refusal::kTruncated:
        return "truncated";
    case Refusal::kNoStamp:
        return "no_stamp";
    case Refusal::kFutureStamp:
        return "future_stamp";
    case Refusal::kOtherDay:
        return "other_day";
    case Refusal::kFrozen:
        return "frozen";
    case Refusal::kUnknownLayout:
        return "unknown_layout";
    case Refusal::kMalformedTime:
        return "malformed_time";
    case Refusal::kImplausibleValue:
        break;
    }
    return "implausible_value";
}

PublishedFile ParsePublishedFile(std::string_view bytes, const ExtraHeadings& extra)
{
    if (bytes.find_first_not_of(kBlanks) == std::string_view::npos) {
        throw CRefusedFile(Refusal::kEmpty, "it is empty");
    }
    if (bytes.size() > kMaxBytes) {
        throw CRefusedFile(Refusal::kUnknownLayout, "it is longer than 1 MiB");
    }
    if (IsMarkup(bytes)) {
        throw CRefusedFile(Refusal::kHtml, "it is a web page");
    }
    const std::string text = DecodePublished(bytes);
    const LocalTime published = ParseStamp(text);
    if (!text.ends_with('\n')) {
        throw CRefusedFile(Refusal::kTruncated, "it ends within a line");
    }
    return CFileReader(SplitLines(text), published, extra).Read();
}

void CheckTimeliness(const PublishedFile& file, std::chrono::year_month_day expected, LocalTime now,
                     minutes frozenAfter)
{
    constexpr minutes kClockTolerance{10};
    if (file.published > now + kClockTolerance) {
        throw CRefusedFile(Refusal::kFutureStamp, "its stamp is in the future");
    }
    if (file.date != expected) {
        throw CRefusedFile(Refusal::kOtherDay, "it is of another day than the one that was asked for");
    }
    const LocalTime midnight{local_days{expected}};
    if (file.published < midnight) {
        throw CRefusedFile(Refusal::kOtherDay, "it was published before its day began");
    }
    const bool isToday = now >= midnight && now < midnight + days{1};
    if (isToday && now - std::max(file.published, midnight + hours{1}) > frozenAfter) {
        throw CRefusedFile(Refusal::kFrozen, "it is today's, but has not been renewed for too long");
    }
}

} // namespace reportd
