#include "apps/padreport/report_json.h"

#include <optional>

#include "apps/padreport/report_parts.h"

namespace padreport {

namespace {

constexpr int INDENT = 2;

Json MakeSeconds(std::int64_t milliseconds) {
    return static_cast<double>(milliseconds) / 1000;
}

template <class T>
Json MakeOptional(const std::optional<T>& figure) {
    return figure ? Json(*figure) : Json(nullptr);
}

Json MakeUncertain(const Uncertain& figure) {
    return {{"value", figure.value}, {"uncertainty", MakeOptional(figure.uncertainty)}};
}

Json MakeSide(const std::optional<SideFigures>& side) {
    if (!side) {
        return nullptr;
    }
    return {
        {"samples", side->count},
        {"min", side->min},
        {"median", MakeUncertain(side->median)},
        {"max", side->max},
        {"spread", MakeUncertain(side->spread)},
    };
}

Json MakeValues(const ButtonFigures& button) {
    Json values = Json::array();
    for (unsigned value = 0; value < VALUE_COUNT; ++value) {
        const ValueFigures& figures = button.values[value];
        values.push_back({
            {"value", value + 1},
            {"rest", MakeSide(figures.rest)},
            {"touched", MakeSide(figures.touched)},
            {"rise", figures.rise ? MakeUncertain(*figures.rise) : Json(nullptr)},
            {"separation", figures.separation ? MakeUncertain(*figures.separation) : Json(nullptr)},
            {"drift_per_minute", MakeOptional(figures.driftPerMinute)},
        });
    }
    return values;
}

Json MakeTouches(const ButtonFigures& button) {
    Json touches = {{"count", button.touches}};
    const auto& lengths = button.touchLengths;
    touches["shortest_s"] = lengths ? MakeSeconds(lengths->shortest) : Json(nullptr);
    touches["median_s"] = lengths ? MakeSeconds(lengths->median) : Json(nullptr);
    touches["longest_s"] = lengths ? MakeSeconds(lengths->longest) : Json(nullptr);
    return touches;
}

Json MakeThreshold(const Judgement& judgement) {
    if (!judgement.threshold) {
        return nullptr;
    }
    const Threshold& threshold = *judgement.threshold;
    return {
        {"value", threshold.value}, {"margin", threshold.GetMargin()},  {"below", threshold.below},
        {"above", threshold.above}, {"moved_samples", threshold.moved}, {"can_be_set", threshold.CanBeSet()},
    };
}

Json MakeButton(const ButtonFigures& button, const Judgement& judgement) {
    return {
        {"button", button.button},
        {"verdict", GetVerdictText(judgement.verdict)},
        {"clearance", MakeOptional(judgement.clearance)},
        {"threshold_now", MakeOptional(button.threshold)},
        {"threshold_now_margin", MakeOptional(judgement.marginNow)},
        {"threshold_proposed", MakeThreshold(judgement)},
        {"samples", button.samples},
        {"untimed_samples", button.untimedSamples},
        {"edge_samples", button.edgeSamples},
        {"rate_per_s", MakeOptional(button.rate)},
        {"gaps", {{"count", button.gaps}, {"longest_s", MakeSeconds(button.longestGap)}}},
        {"touches", MakeTouches(button)},
        {"values", MakeValues(button)},
    };
}

Json MakeLines(const LineCounts& counts) {
    Json lines = Json::object();
    for (const LineKindText& kind : LINE_KIND_TEXTS) {
        const LineCount& count = CountOf(counts, kind.kind);
        lines[kind.key] = {
            {"count", count.count},
            {"first_line", count.count > 0 ? Json(count.firstLine) : Json(nullptr)},
            {"first_text", count.firstText},
        };
    }
    return lines;
}

Json MakeOccurrences(const Occurrences& occurrences) {
    return {{"count", occurrences.count},
            {"first_line", occurrences.count > 0 ? Json(occurrences.firstLine) : Json(nullptr)}};
}

Json MakeInfo(const BoardInfo& info) {
    Json thresholds = Json::object();
    for (const auto& [button, value] : info.thresholds) {
        thresholds[std::to_string(button)] = value;
    }
    Json parameters = Json::object();
    for (const auto& [name, value] : info.parameters) {
        parameters[name] = value;
    }
    return {{"finger_thresholds", thresholds}, {"parameters", parameters}};
}

}  // namespace

Json MakeReportJson(const LogReport& report) {
    const LogFigures& figures = report.figures;
    Json buttons = Json::array();
    for (std::size_t i = 0; i < figures.buttons.size(); ++i) {
        buttons.push_back(MakeButton(figures.buttons[i], report.judgements[i]));
    }
    Json remarks = Json::array();
    for (const Remark& remark : report.remarks) {
        remarks.push_back({{"button", remark.button}, {"what", remark.what}, {"text", remark.text}});
    }
    Json command = nullptr;
    for (const std::string& piece : MakeThresholdCommand(report)) {
        command = command.is_null() ? piece : command.get<std::string>() + ' ' + piece;
    }
    return {
        {"log", figures.name},
        {"read_trouble", figures.readTrouble},
        {"runs", figures.runs},
        {"duration_s", MakeSeconds(figures.timedMilliseconds)},
        {"samples", figures.GetSampleCount()},
        {"signal", report.signal + 1},
        {"board", MakeInfo(figures.info)},
        {"board_changed", figures.hasChangedInfo},
        {"buttons", buttons},
        {"remarks", remarks},
        {"command", command},
        {"lines", MakeLines(figures.lines)},
        {"falling_stamps", MakeOccurrences(figures.fallingStamps)},
        {"jumps", MakeOccurrences(figures.jumps)},
    };
}

std::string FormatJson(const Json& json) {
    return json.dump(INDENT, ' ', false, Json::error_handler_t::replace) + '\n';
}

}  // namespace padreport
