#include "apps/padreport/summary.h"

#include <algorithm>
#include <limits>
#include <tuple>

#include "apps/padreport/report_parts.h"
#include "apps/padreport/text_format.h"

namespace padreport {

namespace {

constexpr const char* NO_SAMPLES = "no samples";

/// The order of badness: lower comes first.
auto GetRank(const LogSummary& summary) {
    const int verdict = summary.worst ? -static_cast<int>(*summary.worst) : std::numeric_limits<int>::min();
    const auto worstCount = -static_cast<std::int64_t>(summary.worstButtons.size());
    const double separation = summary.lowestSeparation.value_or(std::numeric_limits<double>::infinity());
    return std::tuple(verdict, worstCount, separation, std::string_view(summary.name));
}

Cell MakeWorstCell(const LogSummary& summary) {
    if (!summary.worst) {
        return {NO_SAMPLES, Style::BAD};
    }
    return MakeVerdictCell(*summary.worst);
}

std::string ListButtons(const std::vector<unsigned>& buttons) {
    std::string list;
    for (const unsigned button : buttons) {
        list += (list.empty() ? "" : ",") + std::to_string(button);
    }
    return list.empty() ? NOT_KNOWN : list;
}

std::string ListRemarks(const std::vector<Remark>& remarks) {
    std::string list;
    for (const Remark& remark : remarks) {
        list += (list.empty() ? "" : ", ") + std::to_string(remark.button) + ' ' + remark.what;
    }
    return list.empty() ? NOT_KNOWN : list;
}

}  // namespace

LogSummary Summarize(const LogReport& report) {
    LogSummary summary;
    summary.name = report.figures.name;
    summary.readTrouble = report.figures.readTrouble;
    summary.samples = report.figures.GetSampleCount();
    summary.buttons = report.figures.buttons.size();
    summary.remarks = report.remarks;
    for (const LineKindText& kind : LINE_KIND_TEXTS) {
        summary.troubles += kind.isTrouble ? CountOf(report.figures.lines, kind.kind).count : 0;
    }
    for (const Judgement& judgement : report.judgements) {
        summary.worst = std::max(summary.worst.value_or(judgement.verdict), judgement.verdict);
    }
    for (std::size_t i = 0; i < report.judgements.size(); ++i) {
        const ButtonFigures& button = report.figures.buttons[i];
        summary.gaps += button.gaps;
        if (const auto& separation = button.values[report.signal].separation) {
            summary.lowestSeparation =
                std::min(summary.lowestSeparation.value_or(separation->value), separation->value);
        }
        if (report.judgements[i].verdict == summary.worst && summary.worst != Verdict::SAFE) {
            summary.worstButtons.push_back(button.button);
        }
    }
    return summary;
}

void SortSummaries(std::vector<LogSummary>& summaries) {
    std::sort(summaries.begin(), summaries.end(),
              [](const LogSummary& a, const LogSummary& b) { return GetRank(a) < GetRank(b); });
}

std::string RenderSummaries(const std::vector<LogSummary>& summaries, unsigned signal,
                            const Terminal& terminal) {
    TextTable table({
        {"", "Worst", 0, true},
        {"", "Buttons", 0, true},
        {"", "of", 4},
        {"", "Separation", 1},
        {"", "Gaps", 3},
        {"", "Bad lines", 2},
        {"", "Remarks", 5, true},
        {"", "Log", 0, true},
    });
    for (const LogSummary& summary : summaries) {
        std::string name = summary.name;
        if (!summary.readTrouble.empty()) {
            name += " (" + summary.readTrouble + ")";
        }
        table.AddRow({
            MakeWorstCell(summary),
            ListButtons(summary.worstButtons),
            FormatCount(summary.buttons),
            summary.lowestSeparation ? FormatDecimal(*summary.lowestSeparation) : NOT_KNOWN,
            FormatCount(summary.gaps),
            FormatCount(summary.troubles),
            ListRemarks(summary.remarks),
            name,
        });
    }
    return table.Render(terminal) + '\n' +
           Wrap("Verdicts and the lowest separation are by value " + std::to_string(signal + 1) +
                    "; padreport LOG tells more about one log, and the rules.",
                terminal);
}

Json MakeSummariesJson(const std::vector<LogSummary>& summaries, unsigned signal) {
    Json logs = Json::array();
    for (const LogSummary& summary : summaries) {
        Json remarks = Json::array();
        for (const Remark& remark : summary.remarks) {
            remarks.push_back({{"button", remark.button}, {"what", remark.what}});
        }
        logs.push_back({
            {"log", summary.name},
            {"read_trouble", summary.readTrouble},
            {"worst", summary.worst ? GetVerdictText(*summary.worst) : NO_SAMPLES},
            {"worst_buttons", summary.worstButtons},
            {"buttons", summary.buttons},
            {"samples", summary.samples},
            {"lowest_separation", summary.lowestSeparation ? Json(*summary.lowestSeparation) : Json(nullptr)},
            {"gaps", summary.gaps},
            {"bad_lines", summary.troubles},
            {"remarks", remarks},
        });
    }
    return {{"signal", signal + 1}, {"logs", logs}};
}

}  // namespace padreport
