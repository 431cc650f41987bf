#include "ctl/Table.h"

#include <algorithm>

std::size_t CTable::Width(std::size_t column) const
{
    std::size_t width = CString(m_columns[column].title).size();
    for (const auto& row : m_rows) {
        width = std::max(width, row[column].size());
    }
    return width;
}

CString CTable::Text() const
{
    std::vector<std::size_t> widths;
    std::vector<CString> titles;
    for (std::size_t column = 0; column < m_columns.size(); ++column) {
        widths.push_back(Width(column));
        titles.emplace_back(m_columns[column].title);
    }
    CString text;
    const auto appendLine = [&](const std::vector<CString>& cells) {
        CString line;
        for (std::size_t column = 0; column < m_columns.size(); ++column) {
            const CString padding(widths[column] - cells[column].size(), L' ');
            line += column == 0 ? L"" : L"  ";
            line += m_columns[column].alignRight ? padding + cells[column] : cells[column] + padding;
        }
        line.erase(line.find_last_not_of(L' ') + 1);
        text += line + L"\n";
    };
    appendLine(titles);
    for (const auto& row : m_rows) {
        appendLine(row);
    }
    return text;
}
