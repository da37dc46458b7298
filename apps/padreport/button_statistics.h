#pragma once

// What is kept of all samples of one button: counts of its values, of the times between its lines, of its
// touches. Its size does not grow with the length of the log.
//
// Not for concurrent use.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "apps/padreport/drift.h"
#include "apps/padreport/log_reader.h"
#include "apps/padreport/settled_samples.h"
#include "apps/padreport/touch_times.h"
#include "apps/padreport/value_counts.h"

namespace padreport {

/// The samples without a star, and those with one.
enum class Side { REST, TOUCHED };
/// How many sides there are.
constexpr std::size_t SIDE_COUNT = 2;

/// The log is dealt out to so many parts, second by second in turn. How much a figure differs from part to
/// part tells how uncertain that of the whole log is, whatever the reason.
constexpr std::size_t PART_COUNT = 8;

/// What is kept of one button.
class ButtonStatistics {
public:
    ButtonStatistics() : m_settled([this](const Sample& sample) { Count(sample); }) {}

    ButtonStatistics(const ButtonStatistics&) = delete;
    ButtonStatistics& operator=(const ButtonStatistics&) = delete;

    /// @param sample of this button
    /// @param isTimed whether its stamp tells its time
    void Add(const Sample& sample, bool isTimed);

    /// The stretch of time has ended, or the log.
    void EndStretch();

    std::uint64_t GetSampleCount() const { return m_sampleCount; }  ///< timed and untimed ones
    /// Samples whose stamps do not tell their time
    std::uint64_t GetUntimedCount() const { return m_untimedCount; }
    /// Samples that were set aside, as not settled
    std::uint64_t GetEdgeCount() const { return m_settled.GetEdgeCount(); }
    bool IsTouchedNow() const { return m_isTouchedNow; }  ///< whether the last sample has a star

    /// The milliseconds from one timed line to the next, within the stretches.
    const ValueCounts& GetIntervals() const { return m_intervals; }

    const TouchTimes& GetTouches() const { return m_touches; }  ///< of the timed samples

    /// The settled samples of one part of the log.
    /// @param part from 0, less than PART_COUNT
    /// @param side with or without a star
    /// @param value index of the value, from 0
    const ValueCounts& GetPart(std::size_t part, Side side, unsigned value) const {
        return m_parts[part][static_cast<std::size_t>(side)][value];
    }

    /// The settled samples of the whole log.
    ValueCounts GetCounts(Side side, unsigned value) const;

    const Drift& GetDrift() const { return m_drift; }  ///< of the settled, timed samples at rest

private:
    void Count(const Sample& sample);

    std::uint64_t m_sampleCount = 0;
    std::uint64_t m_untimedCount = 0;
    bool m_isTouchedNow = false;
    bool m_isTimed = false;                   // the present stretch
    std::optional<std::int64_t> m_lastTimed;  // milliseconds, in the present stretch
    ValueCounts m_intervals;
    TouchTimes m_touches;
    SettledSamples m_settled;
    std::array<std::array<std::array<ValueCounts, VALUE_COUNT>, SIDE_COUNT>, PART_COUNT> m_parts;
    Drift m_drift;
};

}  // namespace padreport
