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

/// What a change of a figure means. NOT_KNOWN: there are too few samples to tell.
enum class Effect { NOT_KNOWN, NONE, DIFFERENT, BETTER, WORSE };

/// The effect in a word, for people.
const char* GetEffectText(Effect effect);

/// One figure in both logs; nothing where a log does not have it.
struct Difference {
    std::optional<double> before;       ///< in the first log
    std::optional<double> after;        ///< in the second log
    Effect effect = Effect::NOT_KNOWN;  ///< what the change from the one to the other means
};

/// One value of a button in both logs. Medians and rises are counts of the board's; see figures.h.
struct ValueComparison {
    Difference restMedian;  ///< counts
    Difference restSpread;  ///< counts
    Difference rise;        ///< counts
    Difference separation;  ///< units
};

/// One button in both logs.
struct ButtonComparison {
    unsigned button = 0;                   ///< its number
    std::optional<Verdict> verdictBefore;  ///< nothing where the button is not in the log
    std::optional<Verdict> verdictAfter;   ///< likewise
    Effect verdict = Effect::NOT_KNOWN;    ///< what the change of the verdict means
    Difference gaps;                       ///< a minute
    std::vector<ValueComparison> values;   ///< value 1 to 4

    /// Whether something in it is of this effect.
    bool Has(Effect effect) const;
};

/// @return the buttons of both logs, by number
std::vector<ButtonComparison> Compare(const LogReport& before, const LogReport& after);

}  // namespace padreport
