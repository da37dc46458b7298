#include "apps/padreport/remarks.h"

#include <algorithm>
#include <optional>

#include "lib/platform/string_operations.h"

namespace padreport {

namespace {

constexpr double NOISY_RATIO = 3;
constexpr double WEAK_RATIO = 0.6;
constexpr std::size_t OTHERS_MIN = 2;

std::optional<double> GetUnitAtRest(const ButtonFigures& button, unsigned value) {
    const auto& rest = button.values[value].rest;
    return rest ? std::optional(GetUnit(rest->spread.value)) : std::nullopt;
}

std::optional<double> GetRise(const ButtonFigures& button, unsigned value) {
    const std::optional<Uncertain>& rise = button.values[value].rise;
    return rise ? std::optional(rise->value) : std::nullopt;
}

/// The median of what the other buttons have; the lower one of two.
template <class Get>
std::optional<double> GetMedianOfOthers(const std::vector<ButtonFigures>& buttons, const ButtonFigures& one,
                                        Get get) {
    std::vector<double> figures;
    for (const ButtonFigures& other : buttons) {
        if (const std::optional<double> figure = get(other); figure && &other != &one) {
            figures.push_back(*figure);
        }
    }
    if (figures.size() < OTHERS_MIN) {
        return std::nullopt;
    }
    const auto middle = figures.begin() + static_cast<std::ptrdiff_t>((figures.size() - 1) / 2);
    std::nth_element(figures.begin(), middle, figures.end());
    return *middle;
}

/// Of several noisy values the one that differs most from the other buttons' is named.
std::optional<Remark> LookForNoise(const std::vector<ButtonFigures>& buttons, const ButtonFigures& button) {
    std::optional<Remark> remark;
    double worst = NOISY_RATIO;
    for (unsigned value = 0; value < VALUE_COUNT; ++value) {
        const auto get = [value](const ButtonFigures& other) { return GetUnitAtRest(other, value); };
        const std::optional<double> own = get(button);
        const std::optional<double> others = GetMedianOfOthers(buttons, button, get);
        if (own && others && *own > worst * *others) {
            worst = *own / *others;
            remark = {button.button, "noisy",
                      strprintf("the spread of value %u at rest is %.1f, of the other buttons %.1f",
                                value + 1, *own, *others)};
        }
    }
    return remark;
}

std::optional<Remark> LookForWeakness(const std::vector<ButtonFigures>& buttons, const ButtonFigures& button,
                                      unsigned signal) {
    const auto get = [signal](const ButtonFigures& other) { return GetRise(other, signal); };
    const std::optional<double> own = get(button);
    const std::optional<double> others = GetMedianOfOthers(buttons, button, get);
    if (!own || !others || *own >= WEAK_RATIO * *others) {
        return std::nullopt;
    }
    return Remark{button.button, "weak",
                  strprintf("a touch changes value %u by %.0f, of the other buttons by %.0f", signal + 1,
                            *own, *others)};
}

}  // namespace

std::vector<Remark> MakeRemarks(const std::vector<ButtonFigures>& buttons, unsigned signal) {
    std::vector<Remark> remarks;
    for (const ButtonFigures& button : buttons) {
        for (const auto& remark : {LookForNoise(buttons, button), LookForWeakness(buttons, button, signal)}) {
            if (remark) {
                remarks.push_back(*remark);
            }
        }
    }
    return remarks;
}

}  // namespace padreport
