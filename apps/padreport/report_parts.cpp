#include "apps/padreport/report_parts.h"

#include <cstdint>
#include <optional>

#include "apps/padreport/text_format.h"
#include "lib/platform/string_operations.h"

namespace padreport {

const std::array<const char*, RULE_COUNT> REPORT_RULES = {
    "Values 1 to 4: in the order of padtune's lines. At rest: lines without a star; touched: lines with "
    "one; those within 50 ms of a change of the star are left out, unless it changes again within 200 ms.",
    "Spread: interquartile range / 1.349, which for normal noise is the standard deviation. Unit: the "
    "spread at rest, at least 1. Sep., the separation: from the median at rest to the median touched, in "
    "units. Drift: of the value at rest, a minute.",
    "Gap: more than 3 median intervals, and 20 ms, between two lines of a button.",
    "Verdict: overlapping when a value at rest is as high as one touched. Safe when two margins, each "
    "of 3 units and at least an eighth of the rise from median to median, lie between the highest at rest "
    "and the lowest touched, and the threshold in force, if it lies between the medians, has a margin on "
    "either side. Tight otherwise.",
    "Proposed threshold: the middle of the widest range without any sample between the median at rest "
    "and the median touched, if it is two margins wide (with the unit of the samples below it). Moved: "
    "samples that it would put on the other side. Which of its values the board compares with the "
    "threshold is not known here.",
};

namespace {

std::string FormatMedian(const SideFigures& side) {
    return FormatDecimal(side.median.value, 0);
}

Style GetStyle(Verdict verdict) {
    switch (verdict) {
        case Verdict::SAFE:
            return Style::GOOD;
        case Verdict::TIGHT:
        case Verdict::NEVER_TOUCHED:
            return Style::WARNING;
        case Verdict::OVERLAPPING:
        case Verdict::ALWAYS_TOUCHED:
            break;
    }
    return Style::BAD;
}

void AppendSide(std::vector<Cell>& cells, const std::optional<SideFigures>& side) {
    if (!side) {
        cells.insert(cells.end(), 4, NOT_KNOWN);
        return;
    }
    cells.emplace_back(std::to_string(side->min));
    cells.emplace_back(FormatMedian(*side));
    cells.emplace_back(std::to_string(side->max));
    cells.emplace_back(FormatDecimal(side->spread.value));
}

/// @return empty where there is nothing to quote
std::string MakeQuote(const LineCount& count) {
    return count.firstText.empty() ? std::string() : ": \"" + count.firstText + '"';
}

}  // namespace

std::string DescribeRuns(const LogFigures& figures) {
    std::uint64_t untimed = 0;
    for (const ButtonFigures& button : figures.buttons) {
        untimed += button.untimedSamples;
    }
    std::string text = FormatNumberOf(figures.runs, "run") + ", " + FormatSeconds(figures.timedMilliseconds) +
                       " s, " + FormatNumberOf(figures.GetSampleCount(), "sample") + " of " +
                       FormatNumberOf(figures.buttons.size(), "button");
    if (untimed > 0) {
        text += ", " + FormatCount(untimed) + " of them from before the live page, without a time";
    }
    return text;
}

std::string DescribeBoard(const BoardInfo& info) {
    std::string text;
    for (const auto& [name, value] : info.parameters) {
        text += strprintf("%s %d, ", name.c_str(), value);
    }
    if (!info.thresholds.empty()) {
        text += "finger thresholds ";
        for (const auto& [button, value] : info.thresholds) {
            text += strprintf("%u: %d, ", button, value);
        }
    }
    if (text.empty()) {
        return "Board: no INFO lines";
    }
    text.resize(text.size() - 2);
    return "Board: " + text;
}

TextTable MakeVerdictTable(const LogReport& report) {
    TextTable table({
        {"", "Button", 0, true},
        {"", "Verdict", 0, true},
        {"Highest and lowest", "at rest", 2},
        {"", "touched", 2},
        {"", "Clearance", 1},
        {"Threshold", "now", 1},
        {"", "margin", 2},
        {"", "proposed", 0},
        {"", "margin", 0},
        {"", "moved", 3},
    });
    for (std::size_t i = 0; i < report.judgements.size(); ++i) {
        const ButtonFigures& button = report.figures.buttons[i];
        const Judgement& judgement = report.judgements[i];
        const ValueFigures& signal = button.values[report.signal];
        const auto& threshold = judgement.threshold;
        table.AddRow({
            FormatButton(button.button),
            MakeVerdictCell(judgement.verdict),
            signal.rest ? std::to_string(signal.rest->max) : NOT_KNOWN,
            signal.touched ? std::to_string(signal.touched->min) : NOT_KNOWN,
            judgement.clearance ? std::to_string(*judgement.clearance) : NOT_KNOWN,
            button.threshold ? std::to_string(*button.threshold) : NOT_KNOWN,
            judgement.marginNow ? std::to_string(*judgement.marginNow) : NOT_KNOWN,
            threshold ? std::to_string(threshold->value) : "none",
            threshold ? std::to_string(threshold->GetMargin()) : NOT_KNOWN,
            threshold ? FormatCount(threshold->moved) : NOT_KNOWN,
        });
    }
    return table;
}

TextTable MakeButtonTable(const LogFigures& figures) {
    TextTable table({
        {"", "Button", 0, true},
        {"", "Samples", 1},
        {"", "per s", 0},
        {"Gaps", "count", 0},
        {"", "longest s", 2},
        {"Touches", "count", 0},
        {"", "shortest s", 1},
        {"", "median s", 1},
        {"", "longest s", 2},
    });
    for (const ButtonFigures& button : figures.buttons) {
        const auto& lengths = button.touchLengths;
        table.AddRow({
            FormatButton(button.button),
            FormatCount(button.samples),
            button.rate ? FormatDecimal(*button.rate) : NOT_KNOWN,
            FormatCount(button.gaps),
            button.gaps > 0 ? FormatSeconds(button.longestGap) : NOT_KNOWN,
            FormatCount(button.touches),
            lengths ? FormatSeconds(lengths->shortest) : NOT_KNOWN,
            lengths ? FormatSeconds(lengths->median) : NOT_KNOWN,
            lengths ? FormatSeconds(lengths->longest) : NOT_KNOWN,
        });
    }
    return table;
}

TextTable MakeValueTable(const LogFigures& log) {
    TextTable table({
        {"", "Button", 0, true},
        {"", "Value", 0},
        {"At rest", "min", 2},
        {"", "median", 0},
        {"", "max", 2},
        {"", "spread", 1},
        {"Touched", "min", 2},
        {"", "median", 0},
        {"", "max", 2},
        {"", "spread", 3},
        {"", "Sep.", 0},
        {"", "Drift", 3},
    });
    for (const ButtonFigures& button : log.buttons) {
        for (unsigned value = 0; value < VALUE_COUNT; ++value) {
            const ValueFigures& figures = button.values[value];
            std::vector<Cell> cells;
            cells.emplace_back(value == 0 ? FormatButton(button.button) : std::string());
            cells.emplace_back(std::to_string(value + 1));
            AppendSide(cells, figures.rest);
            AppendSide(cells, figures.touched);
            cells.emplace_back(figures.separation ? FormatDecimal(figures.separation->value) : NOT_KNOWN);
            cells.emplace_back(figures.driftPerMinute ? strprintf("%+.1f", *figures.driftPerMinute)
                                                      : NOT_KNOWN);
            table.AddRow(std::move(cells));
        }
    }
    return table;
}

std::vector<std::string> ListRemarks(const LogReport& report) {
    std::vector<std::string> list;
    for (const Remark& remark : report.remarks) {
        list.push_back(FormatButton(remark.button) + " is " + remark.what + ": " + remark.text + ".");
    }
    for (std::size_t i = 0; i < report.judgements.size(); ++i) {
        const std::string button = FormatButton(report.figures.buttons[i].button);
        const Judgement& judgement = report.judgements[i];
        if (!judgement.threshold && judgement.reason != NoThreshold::ONE_SIDE_ONLY) {
            list.push_back(button + ": " + GetNoThresholdText(judgement.reason) + ".");
        } else if (judgement.threshold && !judgement.threshold->CanBeSet()) {
            list.push_back(
                strprintf("%s: the threshold %lld cannot be set: commands to the board carry %lld to %lld.",
                          button.c_str(), static_cast<long long>(judgement.threshold->value),
                          static_cast<long long>(THRESHOLD_MIN), static_cast<long long>(THRESHOLD_MAX)));
        }
    }
    return list;
}

std::string DescribeLines(const LogFigures& figures) {
    std::string text;
    for (const LineKindText& kind : LINE_KIND_TEXTS) {
        const LineCount& count = CountOf(figures.lines, kind.kind);
        if (count.count > 0 && !kind.isTrouble) {
            text += (text.empty() ? "" : ", ") + std::string(kind.text) + ' ' + FormatCount(count.count);
            if (!count.firstText.empty()) {
                text += " (first in line " + FormatCount(count.firstLine) + MakeQuote(count) + ')';
            }
        }
    }
    return "Lines: " + (text.empty() ? "none" : text);
}

std::vector<std::string> ListTroubles(const LogFigures& figures) {
    std::vector<std::string> list;
    const auto say = [&](const std::string& what, std::uint64_t count, std::uint64_t firstLine,
                         const std::string& more) {
        if (count > 0) {
            list.push_back(what + ": " + FormatCount(count) + ", first in line " + FormatCount(firstLine) +
                           more);
        }
    };
    if (!figures.readTrouble.empty()) {
        list.push_back("The log could not be read to its end: " + figures.readTrouble);
    }
    for (const LineKindText& kind : LINE_KIND_TEXTS) {
        if (kind.isTrouble) {
            const LineCount& count = CountOf(figures.lines, kind.kind);
            say(kind.text, count.count, count.firstLine, MakeQuote(count));
        }
    }
    say("Stamps that fall", figures.fallingStamps.count, figures.fallingStamps.firstLine,
        "; another run begins there");
    say("Stamps more than a minute after the one before", figures.jumps.count, figures.jumps.firstLine,
        "; nothing is measured across");
    if (figures.hasChangedInfo) {
        list.emplace_back(
            "INFO lines differ from run to run: the figures mix them, those of the last are shown");
    }
    return list;
}

Cell MakeVerdictCell(Verdict verdict) {
    return {GetVerdictText(verdict), GetStyle(verdict)};
}

std::string DescribeCommand(const LogReport& report) {
    return strprintf("To set the proposed thresholds, if value %u is what the board compares:",
                     report.signal + 1);
}

std::vector<std::string> MakeThresholdCommand(const LogReport& report) {
    std::vector<std::string> command;
    for (std::size_t i = 0; i < report.judgements.size(); ++i) {
        const auto& threshold = report.judgements[i].threshold;
        if (threshold && threshold->CanBeSet()) {
            command.push_back(strprintf("--finger-threshold %u,%lld", report.figures.buttons[i].button,
                                        static_cast<long long>(threshold->value)));
        }
    }
    if (!command.empty()) {
        command.insert(command.begin(), "padtune");
    }
    return command;
}

}  // namespace padreport
