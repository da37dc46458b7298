#pragma once

// What differs between two logs of the same board, beyond the noise of the figures.
//
// A figure differs when it changed by more than its resolution and three standard errors, those of both logs
// together (the root of the sum of their squares; see "uncertainty" in figures.h). The resolution is one
// count for a median or a rise, one count between the quartiles for a spread, and for a separation what such
// a count in the spread makes of it. Where one of the logs has too few samples for an uncertainty, nothing
// is said.
//
// - Median at rest: it only differs.
// - Spread at rest: the smaller the better.
// - Rise, separation: the larger the better.
// - Gaps: counts of them are compared, as so many in the time of the log. They differ by more than three
//   times the root of the sum of the counts, of at least 1, likewise in the time. The fewer the better.
// - Verdict: every change counts.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "apps/padreport/log_report.h"

namespace padreport {

enum class Effect { NOT_KNOWN, NONE, DIFFERENT, BETTER, WORSE };

const char* GetEffectText(Effect effect);

/// One figure in both logs; nothing where a log does not have it.
struct Difference {
    std::optional<double> before;
    std::optional<double> after;
    Effect effect = Effect::NOT_KNOWN;
};

struct ValueComparison {
    Difference restMedian;
    Difference restSpread;
    Difference rise;
    Difference separation;
};

struct ButtonComparison {
    unsigned button = 0;
    std::optional<Verdict> verdictBefore;  ///< nothing where the button is not in the log
    std::optional<Verdict> verdictAfter;
    Effect verdict = Effect::NOT_KNOWN;
    Difference gaps;  ///< a minute
    std::vector<ValueComparison> values;

    /// Whether something in it is of this effect.
    bool Has(Effect effect) const;
};

/// @return the buttons of both logs, by number
std::vector<ButtonComparison> Compare(const LogReport& before, const LogReport& after);

}  // namespace padreport
