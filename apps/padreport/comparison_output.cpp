#include "apps/padreport/comparison_output.h"

#include <optional>
#include <vector>

#include "apps/padreport/report_parts.h"
#include "apps/padreport/text_format.h"
#include "apps/padreport/text_table.h"

namespace padreport {

namespace {

constexpr std::size_t INDENT = 4;

constexpr const char* RULES =
    "+ better, - worse, ! differs, ? too few samples to tell; nothing: not beyond the noise. A median or "
    "spread differs when it changed by more than one count (a spread: one count between the quartiles; a "
    "separation: what that makes of it) and 3 standard errors, which are estimated from 8 parts of each "
    "log. Gaps differ by more than 3 times the root of their counts. Verdicts are by one value; every "
    "change of them is said.";

/// The differences of a value, in the order of the table.
constexpr struct {
    Difference ValueComparison::*difference;
    const char* key;
    const char* text;
    int digits;
} VALUE_DIFFERENCES[] = {
    {&ValueComparison::restMedian, "rest_median", "median at rest", 0},
    {&ValueComparison::restSpread, "rest_spread", "spread at rest", 1},
    {&ValueComparison::rise, "rise", "rise", 0},
    {&ValueComparison::separation, "separation", "separation", 1},
};

const char* GetMark(Effect effect) {
    switch (effect) {
        case Effect::BETTER:
            return "+";
        case Effect::WORSE:
            return "-";
        case Effect::DIFFERENT:
            return "!";
        case Effect::NOT_KNOWN:
            return "?";
        case Effect::NONE:
            break;
    }
    return " ";
}

Style GetStyle(Effect effect) {
    if (effect == Effect::BETTER) {
        return Style::GOOD;
    }
    return effect == Effect::WORSE ? Style::BAD : Style::PLAIN;
}

std::string FormatFigure(const std::optional<double>& figure, int digits) {
    return figure ? FormatDecimal(*figure, digits) : NOT_KNOWN;
}

void AppendDifference(std::vector<Cell>& cells, const Difference& difference, int digits) {
    cells.emplace_back(FormatFigure(difference.before, digits));
    // Without a figure on one side it is plain why nothing can be told.
    const bool hasBoth = difference.before && difference.after;
    cells.emplace_back(FormatFigure(difference.after, digits) + (hasBoth ? GetMark(difference.effect) : " "),
                       GetStyle(difference.effect));
}

std::string FormatVerdict(const std::optional<Verdict>& verdict) {
    return verdict ? GetVerdictText(*verdict) : "not in the log";
}

std::string RenderButtons(const std::vector<ButtonComparison>& comparisons, const Terminal& terminal) {
    TextTable table({
        {"", "Button", 0, true},
        {"Verdict", "before", 0, true},
        {"", "after", 0, true},
        {"", "", 0, true},
        {"Gaps/min", "before", 1},
        {"", "after", 1},
    });
    for (const ButtonComparison& comparison : comparisons) {
        const Effect effect = comparison.verdict == Effect::NOT_KNOWN ? Effect::NONE : comparison.verdict;
        std::vector<Cell> cells = {
            FormatButton(comparison.button),
            FormatVerdict(comparison.verdictBefore),
            FormatVerdict(comparison.verdictAfter),
            {GetEffectText(effect), GetStyle(effect)},
        };
        AppendDifference(cells, comparison.gaps, 1);
        table.AddRow(std::move(cells));
    }
    return table.Render(terminal);
}

std::string RenderValues(const std::vector<ButtonComparison>& comparisons, const Terminal& terminal) {
    TextTable table({
        {"", "Button", 0, true},
        {"", "Value", 0},
        {"Median at rest", "before", 1},
        {"", "after", 1},
        {"Spread at rest", "before", 1},
        {"", "after", 1},
        {"Rise", "before", 2},
        {"", "after", 2},
        {"Separation", "before", 0},
        {"", "after", 0},
    });
    for (const ButtonComparison& comparison : comparisons) {
        for (unsigned value = 0; value < VALUE_COUNT; ++value) {
            std::vector<Cell> cells = {value == 0 ? FormatButton(comparison.button) : "",
                                       std::to_string(value + 1)};
            for (const auto& row : VALUE_DIFFERENCES) {
                AppendDifference(cells, comparison.values[value].*row.difference, row.digits);
            }
            table.AddRow(std::move(cells));
        }
    }
    return table.Render(terminal);
}

/// @return what of a button has this effect, as in "verdict, spread at rest of value 4"
std::string ListEffects(const ButtonComparison& comparison, Effect effect) {
    std::string list;
    const auto append = [&](Effect found, const std::string& what) {
        if (found == effect) {
            list += (list.empty() ? "" : ", ") + what;
        }
    };
    append(comparison.verdict, "verdict");
    append(comparison.gaps.effect, "gaps");
    for (unsigned value = 0; value < VALUE_COUNT; ++value) {
        for (const auto& row : VALUE_DIFFERENCES) {
            append((comparison.values[value].*row.difference).effect,
                   row.text + std::string(" of value ") + std::to_string(value + 1));
        }
    }
    return list;
}

std::string RenderConclusion(const std::vector<ButtonComparison>& comparisons, const Terminal& terminal) {
    std::string text;
    for (const auto& [effect, heading] :
         {std::pair(Effect::BETTER, "Better"), std::pair(Effect::WORSE, "Worse")}) {
        std::string list;
        for (const ButtonComparison& comparison : comparisons) {
            if (const std::string effects = ListEffects(comparison, effect); !effects.empty()) {
                list += (list.empty() ? "" : "; ") + FormatButton(comparison.button) + " (" + effects + ")";
            }
        }
        text += Wrap(std::string(heading) + ": " + (list.empty() ? "nothing" : list) + '.', terminal, INDENT);
    }
    return text;
}

Json MakeDifferenceJson(const Difference& difference) {
    const auto make = [](const std::optional<double>& figure) {
        return figure ? Json(*figure) : Json(nullptr);
    };
    return {{"before", make(difference.before)},
            {"after", make(difference.after)},
            {"effect", difference.effect == Effect::NONE ? "none" : GetEffectText(difference.effect)}};
}

}  // namespace

std::string RenderComparison(const LogReport& before, const LogReport& after, const Terminal& terminal) {
    const std::vector<ButtonComparison> comparisons = Compare(before, after);
    return "Before: " + before.figures.name + "\nAfter:  " + after.figures.name + "\n\n" +
           RenderConclusion(comparisons, terminal) + '\n' +
           Paint("Verdicts by value " + std::to_string(before.signal + 1), Style::HEADING, terminal) + '\n' +
           RenderButtons(comparisons, terminal) + '\n' + Paint("Values", Style::HEADING, terminal) + '\n' +
           RenderValues(comparisons, terminal) + '\n' + Wrap(RULES, terminal);
}

Json MakeComparisonJson(const LogReport& before, const LogReport& after) {
    Json buttons = Json::array();
    for (const ButtonComparison& comparison : Compare(before, after)) {
        Json values = Json::array();
        for (unsigned value = 0; value < VALUE_COUNT; ++value) {
            Json entry = {{"value", value + 1}};
            for (const auto& row : VALUE_DIFFERENCES) {
                entry[row.key] = MakeDifferenceJson(comparison.values[value].*row.difference);
            }
            values.push_back(entry);
        }
        buttons.push_back({{"button", comparison.button},
                           {"verdict",
                            {{"before", FormatVerdict(comparison.verdictBefore)},
                             {"after", FormatVerdict(comparison.verdictAfter)}}},
                           {"gaps_per_minute", MakeDifferenceJson(comparison.gaps)},
                           {"values", values}});
    }
    return {{"before", MakeReportJson(before)}, {"after", MakeReportJson(after)}, {"buttons", buttons}};
}

}  // namespace padreport
