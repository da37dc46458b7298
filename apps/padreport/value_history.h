#pragma once

// What the values of all buttons did over time, thinned while the log is read: an hour of samples neither
// fits a page nor need be kept.
//
// Time is cut into slices of equal length. Of each slice in which a button has samples, the lowest and the
// highest of each value are kept, and whether the button was touched. So no extreme and no touch is lost;
// only their moments become less exact. Where a button would need more than SLICES_MAX slices, they become
// twice as long, for all buttons.
//
// The stretches of the log (timeline.h) follow one another with STRETCH_BREAK_MILLISECONDS between them. The
// time of a log with one stretch is that of its stamps. Untimed samples take no part.
//
// Not for concurrent use.

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "apps/padreport/log_reader.h"

namespace padreport {

/// A button has no more slices than this.
constexpr std::size_t SLICES_MAX = 4096;
/// Between two stretches, in the time of the history.
constexpr std::int64_t STRETCH_BREAK_MILLISECONDS = 1000;

/// A log that is nothing but stamps that fall has as many stretches as lines: later ones have no entry.
constexpr std::size_t LISTED_STRETCHES_MAX = 256;

/// What a button did in a slice of time.
struct Slice {
    std::int64_t index = 0;                       ///< it begins so many slice lengths after 0
    std::array<std::int32_t, VALUE_COUNT> min{};  ///< of value 1 to 4, counts of the board's
    std::array<std::int32_t, VALUE_COUNT> max{};  ///< likewise
    bool isTouched = false;                       ///< in some sample
};

/// A stretch of the log that the history lists.
struct ListedStretch {
    std::int64_t start = 0;  ///< milliseconds of the history
    std::int64_t stamp = 0;  ///< milliseconds, as its first line says
    std::uint64_t run = 0;   ///< from 1
};

/// What all buttons did over time, in slices.
class ValueHistory {
public:
    /// @param sample timed
    /// @param beginsStretch whether a stretch has begun since the last sample
    /// @param run which of the log's runs it belongs to, from 1
    void Add(const Sample& sample, bool beginsStretch, std::uint64_t run);

    /// Makes the slices twice as long.
    void Coarsen();

    std::int64_t GetSliceMilliseconds() const { return m_sliceMilliseconds; }  ///< length of a slice

    /// By button, in the order of time.
    const std::map<unsigned, std::vector<Slice>>& GetButtons() const { return m_buttons; }

    /// The first LISTED_STRETCHES_MAX of them
    const std::vector<ListedStretch>& GetStretches() const { return m_stretches; }

private:
    void BeginStretch(const Sample& sample, std::uint64_t run);

    std::int64_t m_sliceMilliseconds = 1;
    std::int64_t m_offset = 0;  // from the stamps of the present stretch to the time of the history
    std::int64_t m_last = 0;    // of the history
    bool m_isBegun = false;
    std::map<unsigned, std::vector<Slice>> m_buttons;
    std::vector<ListedStretch> m_stretches;
};

}  // namespace padreport
