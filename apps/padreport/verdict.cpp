#include "apps/padreport/verdict.h"

#include <algorithm>
#include <cstddef>

namespace padreport {

namespace {

constexpr double MARGIN_UNITS = 3;
constexpr double MARGIN_SHARE = 1.0 / 8;  // of the rise

// In the order of Verdict and of NoThreshold.
constexpr const char* VERDICT_TEXTS[] = {"safe", "never touched", "tight", "overlapping", "always touched"};
constexpr const char* NO_THRESHOLD_TEXTS[] = {
    "-",
    "no safe threshold: a touch does not raise the value",
    "no safe threshold: no range without samples is wide enough",
};

struct Gap {
    std::int32_t below = 0;
    std::int32_t above = 0;

    std::int64_t GetWidth() const { return std::int64_t{above} - below; }
};

/// @return the widest gap between two values that occurred, both from `first` to `last`; the lowest of
///         several
Gap FindWidestGap(const ValueCounts& counts, std::int32_t first, std::int32_t last) {
    Gap widest{first, first};
    std::int32_t previous = first;
    counts.ForEach([&](std::int32_t value, std::uint64_t) {
        if (value <= first || value > last) {
            return;
        }
        const Gap gap{previous, value};
        if (gap.GetWidth() > widest.GetWidth()) {
            widest = gap;
        }
        previous = value;
    });
    return widest;
}

template <class Condition>
ValueCounts Select(const ValueCounts& counts, Condition condition) {
    ValueCounts selected;
    counts.ForEach([&](std::int32_t value, std::uint64_t count) {
        if (condition(value)) {
            selected.Add(value, count);
        }
    });
    return selected;
}

/// What a threshold needs on either side.
double GetMargin(const Quantiles& below, std::int64_t rise) {
    return std::max(MARGIN_UNITS * GetUnit(GetSpread(below)), MARGIN_SHARE * static_cast<double>(rise));
}

void ProposeThreshold(const ValueCounts& rest, const ValueCounts& touched, Judgement& judgement) {
    const std::int32_t medianAtRest = rest.GetQuantiles().median;
    const std::int32_t medianTouched = touched.GetQuantiles().median;
    if (medianTouched <= medianAtRest) {
        judgement.reason = NoThreshold::NOT_RISING;
        return;
    }
    ValueCounts all = rest;
    all.Add(touched);
    const Gap gap = FindWidestGap(all, medianAtRest, medianTouched);
    const auto isBelow = [&](std::int32_t value) { return value <= gap.below; };
    const auto isAbove = [&](std::int32_t value) { return value >= gap.above; };
    const std::int64_t rise = std::int64_t{medianTouched} - medianAtRest;
    if (static_cast<double>(gap.GetWidth()) < 2 * GetMargin(Select(all, isBelow).GetQuantiles(), rise)) {
        judgement.reason = NoThreshold::NO_GAP;
        return;
    }
    const std::uint64_t moved = Select(rest, isAbove).GetTotal() + Select(touched, isBelow).GetTotal();
    judgement.threshold = {gap.below + gap.GetWidth() / 2, gap.below, gap.above, moved};
}

}  // namespace

const char* GetVerdictText(Verdict verdict) {
    return VERDICT_TEXTS[static_cast<std::size_t>(verdict)];
}

const char* GetNoThresholdText(NoThreshold reason) {
    return NO_THRESHOLD_TEXTS[static_cast<std::size_t>(reason)];
}

Judgement Judge(const ValueCounts& rest, const ValueCounts& touched,
                std::optional<std::int64_t> thresholdNow) {
    Judgement judgement;
    if (touched.GetTotal() == 0) {
        judgement.verdict = Verdict::NEVER_TOUCHED;
        return judgement;
    }
    if (rest.GetTotal() == 0) {
        judgement.verdict = Verdict::ALWAYS_TOUCHED;
        return judgement;
    }
    const Quantiles atRest = rest.GetQuantiles();
    const Quantiles whenTouched = touched.GetQuantiles();
    const std::int64_t clearance = std::int64_t{whenTouched.min} - atRest.max;
    const double margin = GetMargin(atRest, std::int64_t{whenTouched.median} - atRest.median);
    judgement.clearance = clearance;
    if (thresholdNow && *thresholdNow > atRest.median && *thresholdNow < whenTouched.median) {
        judgement.marginNow = std::min(*thresholdNow - atRest.max, whenTouched.min - *thresholdNow);
    }
    const bool isTight = static_cast<double>(clearance) < 2 * margin ||
                         (judgement.marginNow && static_cast<double>(*judgement.marginNow) < margin);
    if (clearance <= 0) {
        judgement.verdict = Verdict::OVERLAPPING;
    } else {
        judgement.verdict = isTight ? Verdict::TIGHT : Verdict::SAFE;
    }
    ProposeThreshold(rest, touched, judgement);
    return judgement;
}

}  // namespace padreport
