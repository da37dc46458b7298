#include "apps/padreport/text_table.h"

#include <algorithm>

namespace padreport {

namespace {

constexpr std::size_t GAP_WIDE = 2;
constexpr std::size_t GAP_NARROW = 1;

constexpr const char* RESET = "\x1B[0m";

/// In the order of Style. The usual sixteen colours only: the user has chosen how they look.
constexpr const char* STYLE_SEQUENCES[] = {"", "\x1B[1m", "\x1B[2m", "\x1B[32m", "\x1B[33m", "\x1B[1;31m"};

std::string Pad(const std::string& text, std::size_t width, bool isText) {
    const std::string blanks(width - std::min(width, text.size()), ' ');
    return isText ? text + blanks : blanks + text;
}

void TrimEnd(std::string& line) {
    line.erase(line.find_last_not_of(' ') + 1);
}

}  // namespace

std::string Paint(std::string text, Style style, const Terminal& terminal) {
    if (style == Style::PLAIN || !terminal.hasColours || text.empty()) {
        return text;
    }
    return STYLE_SEQUENCES[static_cast<std::size_t>(style)] + std::move(text) + RESET;
}

std::string Wrap(std::string_view text, const Terminal& terminal, std::size_t indent) {
    std::vector<std::string> words;
    while (!text.empty()) {
        words.emplace_back(text.substr(0, text.find(' ')));
        text.remove_prefix(std::min(text.size(), words.back().size() + 1));
    }
    return WrapPieces(words, terminal, indent, "");
}

std::string WrapPieces(const std::vector<std::string>& pieces, const Terminal& terminal, std::size_t indent,
                       std::string_view lineEnd) {
    std::string text;
    std::size_t length = 0;  // of the present line
    for (const std::string& piece : pieces) {
        if (length > indent && length + 1 + piece.size() + lineEnd.size() > terminal.width) {
            text += lineEnd;
            text += '\n';
            text.append(indent, ' ');
            length = indent;
        } else if (!text.empty()) {
            text += ' ';
            ++length;
        }
        text += piece;
        length += piece.size();
    }
    return text + '\n';
}

std::string TextTable::Render(const Terminal& terminal) const {
    const std::vector<std::size_t> widths = MeasureColumns();
    const Layout layout = Fit(widths, terminal.width);

    std::string groups;
    std::string headings;
    bool hasGroups = false;
    for (const std::size_t column : layout.columns) {
        const Column& what = m_columns[column];
        headings.append(GetGapBefore(layout, column), ' ');
        if (*what.group != '\0') {
            hasGroups = true;
            groups = Pad(groups, headings.size(), true) + what.group;
        }
        headings += Pad(what.heading, widths[column], what.isText);
    }
    TrimEnd(headings);

    std::string text = hasGroups ? Paint(groups, Style::HEADING, terminal) + '\n' : std::string();
    text += Paint(headings, Style::HEADING, terminal) + '\n';
    for (const std::vector<Cell>& row : m_rows) {
        std::string line;
        for (const std::size_t column : layout.columns) {
            line.append(GetGapBefore(layout, column), ' ');
            line += Paint(Pad(row[column].text, widths[column], m_columns[column].isText), row[column].style,
                          terminal);
        }
        TrimEnd(line);
        text += line + '\n';
    }
    return text;
}

std::vector<std::size_t> TextTable::MeasureColumns() const {
    std::vector<std::size_t> widths;
    for (std::size_t column = 0; column < m_columns.size(); ++column) {
        std::size_t width = std::string_view(m_columns[column].heading).size();
        for (const std::vector<Cell>& row : m_rows) {
            width = std::max(width, row[column].text.size());
        }
        widths.push_back(width);
    }
    return widths;
}

std::size_t TextTable::GetGapBefore(const Layout& layout, std::size_t column) const {
    if (column == layout.columns.front()) {
        return 0;
    }
    return layout.gap + (*m_columns[column].group == '\0' ? 0 : 1);
}

/// Narrower gaps come before leaving something out.
TextTable::Layout TextTable::Fit(const std::vector<std::size_t>& widths, std::size_t available) const {
    int highestRank = 0;
    for (const Column& column : m_columns) {
        highestRank = std::max(highestRank, column.rank);
    }
    Layout layout;
    for (; highestRank >= 0; --highestRank) {
        layout.columns.clear();
        std::size_t width = 0;
        for (std::size_t column = 0; column < m_columns.size(); ++column) {
            if (m_columns[column].rank <= highestRank) {
                layout.columns.push_back(column);
                width += widths[column];
            }
        }
        for (const std::size_t gap : {GAP_WIDE, GAP_NARROW}) {
            layout.gap = gap;
            std::size_t gaps = 0;
            for (const std::size_t column : layout.columns) {
                gaps += GetGapBefore(layout, column);
            }
            if (width + gaps <= available) {
                return layout;
            }
        }
    }
    return layout;
}

}  // namespace padreport
