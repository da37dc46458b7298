#pragma once

// Tables and paragraphs that fit a terminal. ASCII only: a column is as wide as its longest text.

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "apps/padreport/terminal.h"

namespace padreport {

enum class Style { PLAIN, HEADING, FAINT, GOOD, WARNING, BAD };

/// Puts a text in a style, where the terminal has colours.
std::string Paint(std::string text, Style style, const Terminal& terminal);

/// Breaks a text at its blanks so that it fits the terminal.
/// @param indent blanks before each line but the first
/// @return lines, each with its line feed
std::string Wrap(std::string_view text, const Terminal& terminal, std::size_t indent = 0);

/// The same for pieces that are not broken.
/// @param lineEnd what stands at the end of each line but the last, before the line feed
std::string WrapPieces(const std::vector<std::string>& pieces, const Terminal& terminal, std::size_t indent,
                       std::string_view lineEnd);

struct Column {
    const char* group = "";  ///< stands above the headings of its columns, in the row of the first of them
    const char* heading = "";
    int rank =
        0;  ///< where the table is too wide, the columns of the highest rank are left out first; 0 stays
    bool isText = false;  ///< texts stand on the left of their column, numbers on the right
};

struct Cell {
    Cell(std::string cellText, Style cellStyle = Style::PLAIN)
        : text(std::move(cellText)), style(cellStyle) {}
    Cell(const char* cellText) : text(cellText) {}

    std::string text;
    Style style = Style::PLAIN;
};

class TextTable {
public:
    explicit TextTable(std::vector<Column> columns) : m_columns(std::move(columns)) {}

    /// @param cells one for each column
    void AddRow(std::vector<Cell> cells) { m_rows.push_back(std::move(cells)); }

    const std::vector<Column>& GetColumns() const { return m_columns; }
    const std::vector<std::vector<Cell>>& GetRows() const { return m_rows; }

    /// @return lines, each with its line feed
    std::string Render(const Terminal& terminal) const;

private:
    struct Layout {
        std::vector<std::size_t> columns;  // those that are shown
        std::size_t gap = 0;               // blanks between them; one more before a group
    };

    std::vector<std::size_t> MeasureColumns() const;
    std::size_t GetGapBefore(const Layout& layout, std::size_t column) const;
    Layout Fit(const std::vector<std::size_t>& widths, std::size_t available) const;

    std::vector<Column> m_columns;
    std::vector<std::vector<Cell>> m_rows;
};

}  // namespace padreport
