#pragma once

// Whether a button can be relied on, as seen in one of its four values: the signal. Units and rise are those
// of figures.h.
//
// - Margin: what a threshold needs on either side: 3 units, but at least an eighth of the rise: a signal that
//   the board cuts to 0 shows no noise at rest.
// - Clearance: the lowest value touched less the highest at rest.
// - Overlapping: the clearance is not above 0: some value at rest is as high as one of a touch.
// - Tight: the clearance is less than two margins; or the threshold in force lies between the medians (where
//   it does not, it is not about this signal) and is closer than a margin to the highest at rest or the
//   lowest touched.
// - Safe: neither.
// - Never touched, always touched: one of the sides has no samples.
//
// A threshold is proposed from the values alone, for the stars that come from a wrong threshold are wrong:
// in the widest gap, free of any sample, between the median at rest and the median touched. It is the middle
// of the gap, and the gap must be two margins wide, where the unit is that of the samples below the gap.

#include <algorithm>
#include <cstdint>
#include <optional>

#include "apps/padreport/figures.h"
#include "apps/padreport/value_counts.h"

namespace padreport {

/// From the best to the worst.
enum class Verdict { SAFE, NEVER_TOUCHED, TIGHT, OVERLAPPING, ALWAYS_TOUCHED };

/// What the board's commands can carry.
constexpr std::int64_t THRESHOLD_MIN = 0;
/// Likewise.
constexpr std::int64_t THRESHOLD_MAX = 255;

/// The verdict in words, for people.
const char* GetVerdictText(Verdict verdict);

/// A threshold that the values propose. Counts of the board's.
struct Threshold {
    std::int64_t value = 0;   ///< in the middle of the gap
    std::int64_t below = 0;   ///< the highest value below the gap
    std::int64_t above = 0;   ///< the lowest value above it
    std::uint64_t moved = 0;  ///< samples with a star below the gap, and without one above it

    /// On the narrower side.
    std::int64_t GetMargin() const { return std::min(value - below, above - value); }
    /// Whether the board's commands can carry it.
    bool CanBeSet() const { return value >= THRESHOLD_MIN && value <= THRESHOLD_MAX; }
};

/// Why no threshold is proposed.
enum class NoThreshold {
    ONE_SIDE_ONLY,  ///< never touched, or always
    NOT_RISING,     ///< the median touched is not above the one at rest
    NO_GAP,         ///< none that is wide enough
};

/// The reason in words, for people.
const char* GetNoThresholdText(NoThreshold reason);

/// What is said about one button.
struct Judgement {
    Verdict verdict = Verdict::NEVER_TOUCHED;  ///< seen in the signal
    std::optional<std::int64_t> clearance;     ///< nothing where one side has no samples
    /// Of the threshold in force, on the narrower side; nothing where it does not lie between the medians.
    std::optional<std::int64_t> marginNow;
    std::optional<Threshold> threshold;  ///< the one proposed; nothing where there is a reason for none
    NoThreshold reason = NoThreshold::ONE_SIDE_ONLY;  ///< why there is no threshold
};

/// @param rest, touched the settled samples of the signal
/// @param thresholdNow the threshold in force; nothing when it is not known
Judgement Judge(const ValueCounts& rest, const ValueCounts& touched,
                std::optional<std::int64_t> thresholdNow);

}  // namespace padreport
