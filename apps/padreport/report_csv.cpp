#include "apps/padreport/report_csv.h"

#include <optional>

#include "apps/padreport/text_format.h"

namespace padreport {

namespace {

constexpr const char* HEADINGS =
    "log,button,verdict,clearance,threshold_now,threshold_now_margin,threshold_proposed,"
    "threshold_proposed_margin,samples,rate_per_s,gaps,longest_gap_s,touches,shortest_touch_s,"
    "median_touch_s,longest_touch_s,value,rest_samples,rest_min,rest_median,rest_max,rest_spread,"
    "touched_samples,touched_min,touched_median,touched_max,touched_spread,rise,separation,"
    "drift_per_minute\n";

/// Appends cells to one row.
class Row {
public:
    void Add(const std::string& text) {
        m_text += m_text.empty() ? "" : ",";
        m_text += text;
    }
    void AddText(const std::string& text) {
        if (text.find_first_of(",\"\r\n") == std::string::npos) {
            Add(text);
            return;
        }
        std::string quoted = "\"";
        for (const char c : text) {
            quoted += c;
            if (c == '"') {
                quoted += c;
            }
        }
        Add(quoted + '"');
    }
    template <class Number>
    void AddNumber(Number number) {
        Add(std::to_string(number));
    }
    template <class Number>
    void AddOptional(const std::optional<Number>& number) {
        Add(number ? std::to_string(*number) : "");
    }
    void AddDecimal(const std::optional<double>& number) { Add(number ? FormatDecimal(*number, 3) : ""); }
    void AddEmpty(int cells) {
        for (; cells > 0; --cells) {
            Add("");
        }
    }
    const std::string& GetText() const { return m_text; }

private:
    std::string m_text;
};

void AddSide(Row& row, const std::optional<SideFigures>& side) {
    if (!side) {
        row.AddEmpty(5);
        return;
    }
    row.AddNumber(side->count);
    row.AddNumber(side->min);
    row.Add(FormatDecimal(side->median.value, 0));
    row.AddNumber(side->max);
    row.AddDecimal(side->spread.value);
}

/// What all rows of a button begin with.
Row MakeButtonRow(const std::string& log, const ButtonFigures& button, const Judgement& judgement) {
    Row row;
    row.AddText(log);
    row.AddNumber(button.button);
    row.Add(GetVerdictText(judgement.verdict));
    row.AddOptional(judgement.clearance);
    row.AddOptional(button.threshold);
    row.AddOptional(judgement.marginNow);
    if (judgement.threshold) {
        row.AddNumber(judgement.threshold->value);
        row.AddNumber(judgement.threshold->GetMargin());
    } else {
        row.AddEmpty(2);
    }
    row.AddNumber(button.samples);
    row.AddDecimal(button.rate);
    row.AddNumber(button.gaps);
    row.Add(FormatSeconds(button.longestGap));
    row.AddNumber(button.touches);
    if (const auto& lengths = button.touchLengths) {
        row.Add(FormatSeconds(lengths->shortest));
        row.Add(FormatSeconds(lengths->median));
        row.Add(FormatSeconds(lengths->longest));
    } else {
        row.AddEmpty(3);
    }
    return row;
}

}  // namespace

std::string FormatCsv(const std::vector<LogReport>& reports) {
    std::string text = HEADINGS;
    for (const LogReport& report : reports) {
        for (std::size_t i = 0; i < report.judgements.size(); ++i) {
            const ButtonFigures& button = report.figures.buttons[i];
            const Row buttonRow = MakeButtonRow(report.figures.name, button, report.judgements[i]);
            for (unsigned value = 0; value < VALUE_COUNT; ++value) {
                const ValueFigures& figures = button.values[value];
                Row row = buttonRow;
                row.AddNumber(value + 1);
                AddSide(row, figures.rest);
                AddSide(row, figures.touched);
                row.AddDecimal(figures.rise ? std::optional(figures.rise->value) : std::nullopt);
                row.AddDecimal(figures.separation ? std::optional(figures.separation->value) : std::nullopt);
                row.AddDecimal(figures.driftPerMinute);
                text += row.GetText() + '\n';
            }
        }
    }
    return text;
}

}  // namespace padreport
