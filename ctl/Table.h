// Text laid out in columns.
#pragma once

#include "platform/Types.h"

#include <vector>

// A table with one line of titles; all rows have as many cells as it has columns. Belongs to one thread at a time. The
// operations throw std::bad_alloc only.
class CTable {
public:
    struct Column {
        const wchar_t* title; // a literal
        bool alignRight;      // for numbers
    };

    explicit CTable(std::vector<Column> columns) : m_columns(std::move(columns)) {}

    // cells: as many as there are columns.
    void AddRow(std::vector<CString> cells) { m_rows.push_back(std::move(cells)); }

    bool IsEmpty() const { return m_rows.empty(); }

    // One line per row, after the titles: columns two blanks apart, each as wide as its longest cell, no blank at a
    // line's end. width: characters that fit into a line; 0 for no limit. Where they are too few, the titles and every
    // row are folded: what does not fit goes on in the next line, four blanks to the right.
    CString Text(std::size_t width = 0) const;

private:
    std::size_t Width(std::size_t column) const;
    struct Place {
        std::size_t start; // in its line
        bool beginsLine;
    };
    std::vector<Place> Places(std::size_t width) const; // of the columns

    std::vector<Column> m_columns;
    std::vector<std::vector<CString>> m_rows;
};
