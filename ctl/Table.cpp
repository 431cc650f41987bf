#include "ctl/Table.h"

#include <algorithm>

namespace {

constexpr std::size_t kGap = 2;    // between columns
constexpr std::size_t kIndent = 4; // of a folded row's further lines

} // namespace

std::size_t CTable::Width(std::size_t column) const
{
    std::size_t width = CString(m_columns[column].title).size();
    for (const auto& row : m_rows) {
        width = std::max(width, row[column].size());
    }
    return width;
}

std::vector<CTable::Place> CTable::Places(std::size_t width) const
{
    std::vector<Place> places;
    std::size_t next = 0;
    for (std::size_t column = 0; column < m_columns.size(); ++column) {
        const std::size_t size = Width(column);
        const bool beginsLine = column > 0 && width > 0 && next + size > width;
        places.push_back({beginsLine ? kIndent : next, beginsLine});
        next = places.back().start + size + kGap;
    }
    return places;
}

CString CTable::Text(std::size_t width) const
{
    const std::vector<Place> places = Places(width);
    std::vector<std::size_t> widths;
    std::vector<CString> titles;
    for (std::size_t column = 0; column < m_columns.size(); ++column) {
        widths.push_back(Width(column));
        titles.emplace_back(m_columns[column].title);
    }
    CString text;
    const auto endLine = [&text](CString& line) {
        line.erase(line.find_last_not_of(L' ') + 1);
        text += line + L"\n";
        line.clear();
    };
    const auto appendRow = [&](const std::vector<CString>& cells) {
        CString line;
        for (std::size_t column = 0; column < m_columns.size(); ++column) {
            if (places[column].beginsLine) {
                endLine(line);
            }
            line.resize(places[column].start, L' ');
            const CString padding(widths[column] - cells[column].size(), L' ');
            line += m_columns[column].alignRight ? padding + cells[column] : cells[column] + padding;
        }
        endLine(line);
    };
    appendRow(titles);
    for (const auto& row : m_rows) {
        appendRow(row);
    }
    return text;
}
