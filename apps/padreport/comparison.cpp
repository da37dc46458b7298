#include "apps/padreport/comparison.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace padreport {

namespace {

constexpr double STANDARD_ERRORS = 3;
constexpr double COUNT_RESOLUTION = 1;
constexpr double SPREAD_RESOLUTION = 1 / 1.349;
constexpr double MILLISECONDS_PER_MINUTE = 60'000;

// In the order of Effect.
constexpr const char* EFFECT_TEXTS[] = {"?", "", "differs", "better", "worse"};

enum class Good { NEITHER, LESS, MORE };

Effect GetEffect(double change, double noise, Good good) {
    if (std::abs(change) <= noise) {
        return Effect::NONE;
    }
    if (good == Good::NEITHER) {
        return Effect::DIFFERENT;
    }
    return (change > 0) == (good == Good::MORE) ? Effect::BETTER : Effect::WORSE;
}

Difference CompareFigures(const std::optional<Uncertain>& before, const std::optional<Uncertain>& after,
                          double resolution, Good good) {
    Difference difference;
    if (before) {
        difference.before = before->value;
    }
    if (after) {
        difference.after = after->value;
    }
    if (before && after && before->uncertainty && after->uncertainty) {
        const double noise =
            resolution + STANDARD_ERRORS * std::hypot(*before->uncertainty, *after->uncertainty);
        difference.effect = GetEffect(after->value - before->value, noise, good);
    }
    return difference;
}

std::optional<Uncertain> GetMedian(const std::optional<SideFigures>& side) {
    return side ? std::optional(side->median) : std::nullopt;
}

std::optional<Uncertain> GetRestSpread(const ValueFigures& value) {
    return value.rest ? std::optional(value.rest->spread) : std::nullopt;
}

/// What a separation loses when the spread is one step of its resolution larger.
double GetSeparationResolution(const ValueFigures& value) {
    if (!value.separation) {
        return 0;
    }
    const double unit = GetUnit(value.rest->spread.value);
    return std::abs(value.separation->value) * SPREAD_RESOLUTION / (unit + SPREAD_RESOLUTION);
}

ValueComparison CompareValues(const ValueFigures& before, const ValueFigures& after) {
    const double separationResolution =
        std::max(GetSeparationResolution(before), GetSeparationResolution(after));
    return {
        CompareFigures(GetMedian(before.rest), GetMedian(after.rest), COUNT_RESOLUTION, Good::NEITHER),
        CompareFigures(GetRestSpread(before), GetRestSpread(after), SPREAD_RESOLUTION, Good::LESS),
        CompareFigures(before.rise, after.rise, COUNT_RESOLUTION, Good::MORE),
        CompareFigures(before.separation, after.separation, separationResolution, Good::MORE),
    };
}

struct GapRate {
    double perMinute = 0;
    double variance = 0;
};

std::optional<GapRate> GetGapRate(const ButtonFigures& button) {
    if (button.timedMilliseconds == 0) {
        return std::nullopt;
    }
    const double minutes = static_cast<double>(button.timedMilliseconds) / MILLISECONDS_PER_MINUTE;
    const auto count = static_cast<double>(button.gaps);
    return GapRate{count / minutes, std::max(count, 1.0) / (minutes * minutes)};
}

Difference CompareGaps(const ButtonFigures& before, const ButtonFigures& after) {
    Difference difference;
    const std::optional<GapRate> rateBefore = GetGapRate(before);
    const std::optional<GapRate> rateAfter = GetGapRate(after);
    if (rateBefore) {
        difference.before = rateBefore->perMinute;
    }
    if (rateAfter) {
        difference.after = rateAfter->perMinute;
    }
    if (rateBefore && rateAfter) {
        const double noise = STANDARD_ERRORS * std::sqrt(rateBefore->variance + rateAfter->variance);
        difference.effect = GetEffect(rateAfter->perMinute - rateBefore->perMinute, noise, Good::LESS);
    }
    return difference;
}

Effect CompareVerdicts(Verdict before, Verdict after) {
    if (before == after) {
        return Effect::NONE;
    }
    // A button that was not touched may be anything.
    if (before == Verdict::NEVER_TOUCHED || after == Verdict::NEVER_TOUCHED) {
        return Effect::DIFFERENT;
    }
    return after < before ? Effect::BETTER : Effect::WORSE;
}

struct Judged {
    const ButtonFigures* figures = nullptr;
    Verdict verdict = Verdict::NEVER_TOUCHED;
};

ButtonComparison CompareButtons(unsigned button, const Judged& before, const Judged& after) {
    ButtonComparison comparison;
    comparison.button = button;
    static const ButtonFigures NONE;
    const ButtonFigures& figuresBefore = before.figures != nullptr ? *before.figures : NONE;
    const ButtonFigures& figuresAfter = after.figures != nullptr ? *after.figures : NONE;
    if (before.figures != nullptr) {
        comparison.verdictBefore = before.verdict;
    }
    if (after.figures != nullptr) {
        comparison.verdictAfter = after.verdict;
    }
    if (comparison.verdictBefore && comparison.verdictAfter) {
        comparison.verdict = CompareVerdicts(before.verdict, after.verdict);
    }
    comparison.gaps = CompareGaps(figuresBefore, figuresAfter);
    for (unsigned value = 0; value < VALUE_COUNT; ++value) {
        comparison.values.push_back(CompareValues(figuresBefore.values[value], figuresAfter.values[value]));
    }
    return comparison;
}

}  // namespace

const char* GetEffectText(Effect effect) {
    return EFFECT_TEXTS[static_cast<std::size_t>(effect)];
}

bool ButtonComparison::Has(Effect effect) const {
    return verdict == effect || gaps.effect == effect ||
           std::any_of(values.begin(), values.end(), [effect](const ValueComparison& value) {
               return value.restMedian.effect == effect || value.restSpread.effect == effect ||
                      value.rise.effect == effect || value.separation.effect == effect;
           });
}

std::vector<ButtonComparison> Compare(const LogReport& before, const LogReport& after) {
    std::map<unsigned, std::pair<Judged, Judged>> buttons;
    for (std::size_t i = 0; i < before.judgements.size(); ++i) {
        const ButtonFigures& figures = before.figures.buttons[i];
        buttons[figures.button].first = {&figures, before.judgements[i].verdict};
    }
    for (std::size_t i = 0; i < after.judgements.size(); ++i) {
        const ButtonFigures& figures = after.figures.buttons[i];
        buttons[figures.button].second = {&figures, after.judgements[i].verdict};
    }
    std::vector<ButtonComparison> comparisons;
    comparisons.reserve(buttons.size());
    for (const auto& [button, judged] : buttons) {
        comparisons.push_back(CompareButtons(button, judged.first, judged.second));
    }
    return comparisons;
}

}  // namespace padreport
