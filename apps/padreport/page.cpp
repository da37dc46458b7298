#include "apps/padreport/page.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>

#include "apps/padreport/report_parts.h"
#include "apps/padreport/text_format.h"
#include "lib/platform/string_operations.h"

namespace padreport {

/// Files that are part of the program; see the build.
namespace assets {

extern const std::string_view CHART_SCRIPT;
extern const std::string_view CHART_STYLE;
extern const std::string_view CHART_LICENCE;
extern const std::string_view PAGE_SCRIPT;
extern const std::string_view PAGE_STYLE;

}  // namespace assets

namespace {

// Nothing is loaded from anywhere, whatever a log smuggled into the page.
constexpr const char* POLICY =
    "default-src 'none'; script-src 'unsafe-inline'; style-src 'unsafe-inline'; base-uri 'none'; "
    "form-action 'none'";

/// In the order of Style; a class has a sign beside its colour.
constexpr const char* STYLE_CLASSES[] = {"", "heading", "faint", "good", "warning", "bad"};

std::string MakeElement(const std::string& name, std::string_view text) {
    return "<" + name + ">" + EscapeHtml(text) + "</" + name + ">\n";
}

template <class Texts>
std::string MakeElements(const std::string& name, const Texts& texts) {
    std::string html;
    for (const std::string_view text : texts) {
        html += MakeElement(name, text);
    }
    return html;
}

std::string MakeList(const std::vector<std::string>& texts) {
    return texts.empty() ? std::string() : "<ul>\n" + MakeElements("li", texts) + "</ul>\n";
}

std::string MakeClassAttribute(const Cell& cell, const Column& column) {
    std::string classes = STYLE_CLASSES[static_cast<std::size_t>(cell.style)];
    if (column.isText) {
        classes += classes.empty() ? "text" : " text";
    }
    return classes.empty() ? classes : " class=\"" + classes + "\"";
}

/// A group stands above its columns, up to the next group.
std::string MakeGroupRow(const std::vector<Column>& columns) {
    const auto hasGroup = [](const Column& column) { return *column.group != '\0'; };
    std::string html = "<tr>";
    for (auto group = columns.begin(); group != columns.end();) {
        const auto next = std::find_if(group + 1, columns.end(), hasGroup);
        html += strprintf("<th colspan=\"%d\">", static_cast<int>(next - group)) + EscapeHtml(group->group) +
                "</th>";
        group = next;
    }
    return html + "</tr>\n";
}

std::string MakeTable(const TextTable& table) {
    const std::vector<Column>& columns = table.GetColumns();
    // A table may be wider than the window: then it scrolls, and not the page.
    std::string html =
        "<div class=\"table\" tabindex=\"0\"><table>\n<thead>\n" + MakeGroupRow(columns) + "<tr>";
    for (const Column& column : columns) {
        html += (column.isText ? "<th class=\"text\">" : "<th>") + EscapeHtml(column.heading) + "</th>";
    }
    html += "</tr>\n</thead>\n<tbody>\n";
    for (const std::vector<Cell>& row : table.GetRows()) {
        html += "<tr>";
        for (std::size_t i = 0; i < row.size(); ++i) {
            html += "<td" + MakeClassAttribute(row[i], columns[i]) + ">" + EscapeHtml(row[i].text) + "</td>";
        }
        html += "</tr>\n";
    }
    return html + "</tbody>\n</table></div>\n";
}

std::string MakeCommand(const LogReport& report) {
    std::string command;
    for (const std::string& piece : MakeThresholdCommand(report)) {
        command += (command.empty() ? "" : " ") + piece;
    }
    return command.empty() ? command
                           : MakeElement("p", DescribeCommand(report)) + MakeElement("pre", command);
}

std::string DescribeThresholds(const ButtonFigures& button, const Judgement& judgement) {
    return "threshold now " + (button.threshold ? std::to_string(*button.threshold) : "not known") +
           ", proposed " + (judgement.threshold ? std::to_string(judgement.threshold->value) : "none");
}

std::string MakeStrips(const LogReport& report, std::int64_t sliceMilliseconds) {
    std::string html =
        "<h2>Values over time</h2>\n<p id=\"hint\">Drag to zoom all strips, drag with Shift to move, "
        "double-click for the whole log; two fingers on a touch screen. Hatched: touched. Bands reach from "
        "the lowest to the highest of " +
        FormatSeconds(sliceMilliseconds) +
        " s, the lines are their middle.</p>\n<div id=\"tools\" role=\"toolbar\" aria-label=\"Time\">"
        "<button type=\"button\" id=\"earlier\">&#9664; earlier</button>"
        "<button type=\"button\" id=\"later\">later &#9654;</button>"
        "<button type=\"button\" id=\"in\">+ closer</button>"
        "<button type=\"button\" id=\"out\">&#8722; wider</button>"
        "<button type=\"button\" id=\"all\">all</button>"
        "<span id=\"values\"></span><output id=\"window\"></output></div>\n"
        "<noscript><p>The strips need JavaScript; the tables do not.</p></noscript>\n";
    for (std::size_t i = 0; i < report.judgements.size(); ++i) {
        const ButtonFigures& button = report.figures.buttons[i];
        const Cell verdict = MakeVerdictCell(report.judgements[i].verdict);
        html += strprintf("<section class=\"strip\" id=\"strip-%u\"><h3>", button.button) +
                FormatButton(button.button) + " <span class=\"" +
                STYLE_CLASSES[static_cast<std::size_t>(verdict.style)] + "\">" + EscapeHtml(verdict.text) +
                "</span> <small>" + EscapeHtml(DescribeThresholds(button, report.judgements[i])) +
                "</small></h3><div class=\"legend\"></div><div class=\"chart\"></div></section>\n";
    }
    return html;
}

/// What stands in the page before its strips' numbers.
std::string MakeBody(const LogReport& report, std::int64_t sliceMilliseconds) {
    const LogFigures& figures = report.figures;
    return "<h1>" + EscapeHtml(figures.name) + "</h1>\n" + MakeElement("p", DescribeRuns(figures)) +
           MakeElement("p", DescribeBoard(figures.info)) +
           MakeElement("h2", strprintf("Verdicts by value %u", report.signal + 1)) +
           MakeTable(MakeVerdictTable(report)) + MakeList(ListRemarks(report)) + MakeCommand(report) +
           MakeStrips(report, sliceMilliseconds) + "<h2>Buttons</h2>\n" +
           MakeTable(MakeButtonTable(figures)) + "<h2>Values</h2>\n" + MakeTable(MakeValueTable(figures)) +
           "<h2>The log</h2>\n" + MakeElement("p", DescribeLines(figures)) + MakeList(ListTroubles(figures)) +
           "<h2>Rules</h2>\n" + MakeElements("p", REPORT_RULES) +
           "<details><summary>Licence of dygraphs, which draws the strips</summary>\n" +
           MakeElement("pre", assets::CHART_LICENCE) + "</details>\n";
}

/// Leaves out the line at the end of the charts' library that names a file for debuggers: the page does not
/// have that file.
std::string_view WithoutSourceMap(std::string_view text) {
    constexpr std::string_view COMMENT_START = "//";
    const std::size_t mark = text.rfind("# sourceMappingURL=");
    return mark == std::string_view::npos || mark < COMMENT_START.size()
               ? text
               : text.substr(0, mark - COMMENT_START.size());
}

void AppendNumber(std::string& text, std::int64_t number) {
    char digits[24];
    const auto result = std::to_chars(std::begin(digits), std::end(digits), number);
    text.append(digits, result.ptr);
}

/// @param get gives the number of an item
template <class Items, class Get>
void AppendNumbers(std::string& text, const Items& items, Get get) {
    text += '[';
    for (const auto& item : items) {
        AppendNumber(text, get(item));
        text += ',';
    }
    if (text.back() == ',') {
        text.pop_back();
    }
    text += ']';
}

/// Appends the first number and then the difference of each from the one before: neighbours are alike, so
/// that differences have fewer digits.
template <class Items, class Get>
void AppendDifferences(std::string& text, const Items& items, Get get) {
    std::int64_t previous = 0;
    AppendNumbers(text, items, [&](const auto& item) {
        const std::int64_t number = get(item);
        return number - std::exchange(previous, number);
    });
}

constexpr const char* NONE = "null";

/// The threshold in force, where it can be about the signal: it lies between the medians, as far as these
/// are known.
std::optional<std::int32_t> GetThresholdOfSignal(const ButtonFigures& button, unsigned signal) {
    const auto& [rest, touched] = std::tie(button.values[signal].rest, button.values[signal].touched);
    if (!button.threshold || (rest && *button.threshold <= rest->median.value) ||
        (touched && *button.threshold >= touched->median.value)) {
        return std::nullopt;
    }
    return button.threshold;
}

void AppendStrip(std::string& text, const ButtonFigures& button, const Judgement& judgement, unsigned signal,
                 const std::vector<Slice>& slices) {
    const auto inForce = GetThresholdOfSignal(button, signal);
    text += "{\"button\":" + std::to_string(button.button) + ",\"gap\":" + std::to_string(button.gapLimit) +
            ",\"now\":" + (inForce ? std::to_string(*inForce) : NONE) +
            ",\"proposed\":" + (judgement.threshold ? std::to_string(judgement.threshold->value) : NONE) +
            ",\"index\":";
    AppendDifferences(text, slices, [](const Slice& slice) { return slice.index; });
    text += ",\"touched\":\"";
    for (const Slice& slice : slices) {
        text += slice.isTouched ? '1' : '0';
    }
    text += "\",\"min\":[";
    for (unsigned value = 0; value < VALUE_COUNT; ++value) {
        text += value > 0 ? "," : "";
        AppendDifferences(text, slices, [=](const Slice& slice) { return std::int64_t{slice.min[value]}; });
    }
    text += "],\"span\":[";
    for (unsigned value = 0; value < VALUE_COUNT; ++value) {
        text += value > 0 ? "," : "";
        AppendNumbers(text, slices,
                      [=](const Slice& slice) { return std::int64_t{slice.max[value]} - slice.min[value]; });
    }
    text += "]}";
}

}  // namespace

std::string EscapeHtml(std::string_view text) {
    std::string escaped;
    for (const char character : text) {
        switch (character) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            case '\'':
                escaped += "&#39;";
                break;
            default:
                escaped += character;
        }
    }
    return escaped;
}

std::string FormatStrips(const LogReport& report, const ValueHistory& history) {
    std::string text = "{\"signal\":" + std::to_string(report.signal) +
                       ",\"slice\":" + std::to_string(history.GetSliceMilliseconds()) + ",\"stretches\":[";
    for (const ListedStretch& stretch : history.GetStretches()) {
        text += text.back() == '[' ? "" : ",";
        AppendNumbers(text, std::array{stretch.start, stretch.stamp, static_cast<std::int64_t>(stretch.run)},
                      [](std::int64_t number) { return number; });
    }
    text += "],\"buttons\":[";
    const std::vector<Slice> none;
    for (std::size_t i = 0; i < report.judgements.size(); ++i) {
        const ButtonFigures& button = report.figures.buttons[i];
        const auto slices = history.GetButtons().find(button.button);
        text += i > 0 ? "," : "";
        AppendStrip(text, button, report.judgements[i], report.signal,
                    slices == history.GetButtons().end() ? none : slices->second);
    }
    return text + "]}";
}

std::string RenderPage(const LogReport& report, ValueHistory history) {
    std::string strips = FormatStrips(report, history);
    while (strips.size() > PAGE_STRIPS_BYTES_MAX) {
        history.Coarsen();
        strips = FormatStrips(report, history);
    }
    std::string page = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n";
    page += std::string("<meta http-equiv=\"Content-Security-Policy\" content=\"") + POLICY + "\">\n";
    page += "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n";
    page += MakeElement("title", "padreport: " + report.figures.name);
    page.append("<style>\n").append(WithoutSourceMap(assets::CHART_STYLE)).append("</style>\n");
    page.append("<style>\n").append(assets::PAGE_STYLE).append("</style>\n</head>\n<body>\n");
    page += MakeBody(report, history.GetSliceMilliseconds());
    page += "<script type=\"application/json\" id=\"strips\">" + strips + "</script>\n";
    page.append("<script>\n").append(WithoutSourceMap(assets::CHART_SCRIPT)).append("</script>\n");
    page.append("<script>\n").append(assets::PAGE_SCRIPT).append("</script>\n</body>\n</html>\n");
    return page;
}

}  // namespace padreport
