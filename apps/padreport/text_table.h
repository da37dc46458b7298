#pragma once

// Tables and paragraphs that fit a terminal. ASCII only: a column is as wide as its longest text.

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "apps/padreport/terminal.h"

namespace padreport {

/// What a text is to look like, by what it means.
enum class Style { PLAIN, HEADING, FAINT, GOOD, WARNING, BAD };

/// Puts a text in a style, where the terminal has colours.
std::string Paint(std::string text, Style style, const Terminal& terminal);

/// Breaks a text at its blanks so that it fits the terminal.
/// @param text ASCII
/// @param terminal whose width counts
/// @param indent blanks before each line but the first
/// @return lines, each with its line feed
std::string Wrap(std::string_view text, const Terminal& terminal, std::size_t indent = 0);

/// The same for pieces that are not broken.
/// @param pieces each shorter than a line
/// @param terminal whose width counts
/// @param indent blanks before each line but the first
/// @param lineEnd what stands at the end of each line but the last, before the line feed
std::string WrapPieces(const std::vector<std::string>& pieces, const Terminal& terminal, std::size_t indent,
                       std::string_view lineEnd);

/// What a column shows, and whether it can be left out.
struct Column {
    const char* group = "";    ///< stands above the headings of its columns, in the row of the first of them
    const char* heading = "";  ///< stands above the column
    int rank =
        0;  ///< where the table is too wide, the columns of the highest rank are left out first; 0 stays
    bool isText = false;  ///< texts stand on the left of their column, numbers on the right
};

/// One text in a row.
struct Cell {
    /// @param cellText  what it shows, ASCII
    /// @param cellStyle how it is shown
    Cell(std::string cellText, Style cellStyle = Style::PLAIN)
        : text(std::move(cellText)), style(cellStyle) {}
    /// A cell in plain style.
    Cell(const char* cellText) : text(cellText) {}

    std::string text;            ///< ASCII
    Style style = Style::PLAIN;  ///< where the terminal has colours
};

/// A table with headings.
class TextTable {
public:
    /// @param columns from left to right
    explicit TextTable(std::vector<Column> columns) : m_columns(std::move(columns)) {}

    /// @param cells one for each column
    void AddRow(std::vector<Cell> cells) { m_rows.push_back(std::move(cells)); }

    const std::vector<Column>& GetColumns() const { return m_columns; }  ///< from left to right
    /// From top to bottom, each with one cell for each column
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
