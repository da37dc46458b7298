#pragma once

// How fast the values of a button at rest wander: the slope of the straight line that fits them best (least
// squares). Each stretch of time has a line of its own, all with one slope, so that a step between two runs
// is no drift.
//
// Not for concurrent use.

#include <array>
#include <cstdint>
#include <optional>

#include "apps/padreport/log_reader.h"

namespace padreport {

/// Over less rest than this, noise would pass for drift.
constexpr std::int64_t DRIFT_MILLISECONDS_MIN = 10'000;

/// The drift of the four values of one button.
class Drift {
public:
    /// @param sample settled, at rest, timed; later than the one before, in the same stretch
    void Add(const Sample& sample);

    /// The stretch of time has ended, or the log.
    void EndStretch();

    /// @param value index of the value, from 0
    /// @return counts per minute; nothing when the button rested for less than DRIFT_MILLISECONDS_MIN, from
    ///         the first to the last sample of each stretch
    std::optional<double> GetPerMinute(unsigned value) const;

private:
    /// Sums of squares and products of the deviations from the means, in milliseconds and counts.
    struct Sums {
        double timeTime = 0;
        std::array<double, VALUE_COUNT> timeValue{};
        std::int64_t milliseconds = 0;

        void Add(const Sums& other);
    };

    Sums m_ended;

    // The present stretch.
    Sums m_sums;
    std::uint64_t m_count = 0;
    std::int64_t m_first = 0;
    double m_meanTime = 0;
    std::array<double, VALUE_COUNT> m_meanValues{};
};

}  // namespace padreport
