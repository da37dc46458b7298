#include "apps/padreport/report_text.h"

#include "apps/padreport/report_parts.h"
#include "apps/padreport/text_format.h"
#include "apps/padreport/text_table.h"
#include "lib/platform/string_operations.h"

namespace padreport {

namespace {

constexpr std::size_t INDENT = 4;

std::string RenderHeading(const std::string& text, const Terminal& terminal) {
    return '\n' + Paint(text, Style::HEADING, terminal) + '\n';
}

template <class Paragraphs>
std::string WrapAll(const Paragraphs& paragraphs, const Terminal& terminal) {
    std::string text;
    for (const std::string_view paragraph : paragraphs) {
        text += Wrap(paragraph, terminal, INDENT);
    }
    return text;
}

std::string RenderVerdicts(const LogReport& report, const Terminal& terminal) {
    return RenderHeading(strprintf("Verdicts by value %u", report.signal + 1), terminal) +
           MakeVerdictTable(report).Render(terminal);
}

std::string RenderRemarks(const LogReport& report, const Terminal& terminal) {
    const std::string text = WrapAll(ListRemarks(report), terminal);
    return text.empty() ? text : '\n' + text;
}

std::string RenderCommand(const LogReport& report, const Terminal& terminal) {
    const std::vector<std::string> command = MakeThresholdCommand(report);
    if (command.empty()) {
        return {};
    }
    return '\n' + DescribeCommand(report) + "\n\n" + WrapPieces(command, terminal, INDENT, " \\");
}

std::string RenderButtons(const LogFigures& figures, const Terminal& terminal) {
    return RenderHeading("Buttons", terminal) + MakeButtonTable(figures).Render(terminal);
}

std::string RenderTroubles(const LogFigures& figures, const Terminal& terminal) {
    return WrapAll(ListTroubles(figures), terminal);
}

}  // namespace

std::string RenderReport(const LogReport& report, const Terminal& terminal) {
    const LogFigures& figures = report.figures;
    const std::string name = Paint(figures.name, Style::HEADING, terminal) + '\n';
    const std::string log = RenderHeading("The log", terminal) +
                            Wrap(DescribeLines(figures), terminal, INDENT) +
                            RenderTroubles(figures, terminal);
    if (!report.HasSamples()) {
        return name + "No samples.\n" + log;
    }
    return name + Wrap(DescribeRuns(figures), terminal) +
           Wrap(DescribeBoard(figures.info), terminal, INDENT) + RenderVerdicts(report, terminal) +
           RenderRemarks(report, terminal) + RenderCommand(report, terminal) +
           RenderButtons(figures, terminal) + RenderHeading("Values", terminal) +
           MakeValueTable(figures).Render(terminal) + log + RenderHeading("Rules", terminal) +
           WrapAll(REPORT_RULES, terminal);
}

std::string RenderLiveReport(const LogReport& report, const Terminal& terminal) {
    std::string touched;
    for (const ButtonFigures& button : report.figures.buttons) {
        if (button.isTouchedNow) {
            touched += (touched.empty() ? "" : " ") + FormatButton(button.button);
        }
    }
    std::string text = Paint(FormatSeconds(report.figures.lastMilliseconds) + " s", Style::HEADING, terminal);
    text += ", touched now: " + (touched.empty() ? std::string("none") : touched) + '\n';
    if (!report.HasSamples()) {
        return text + "No samples yet.\n";
    }
    return text + RenderVerdicts(report, terminal) + RenderButtons(report.figures, terminal) +
           RenderTroubles(report.figures, terminal);
}

}  // namespace padreport
