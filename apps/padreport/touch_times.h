#pragma once

// The touches of a button: each is a span of lines with a star.
//
// A touch lasts from its first line with a star to the first line without one. One that was on when a
// stretch of time began, or still is when it ends, is counted, but its length is not known. Untimed lines
// take no part.
//
// Not for concurrent use.

#include <cstdint>

#include "apps/padreport/log_reader.h"
#include "apps/padreport/value_counts.h"

namespace padreport {

/// Number and lengths of the touches of one button.
class TouchTimes {
public:
    /// @param sample timed
    void Add(const Sample& sample) {
        if (sample.touched && !m_isTouched) {
            ++m_count;
            m_isStartKnown = m_isInStretch;
            m_start = sample.milliseconds;
        } else if (!sample.touched && m_isTouched && m_isStartKnown) {
            m_lengths.AddMilliseconds(sample.milliseconds - m_start);
        }
        m_isTouched = sample.touched;
        m_isInStretch = true;
    }

    /// The stretch of time has ended, or the log.
    void EndStretch() {
        m_isTouched = false;
        m_isInStretch = false;
    }

    std::uint64_t GetCount() const { return m_count; }  ///< touches so far, the present one included

    /// In milliseconds, of the touches that were seen from beginning to end.
    const ValueCounts& GetLengths() const { return m_lengths; }

private:
    std::uint64_t m_count = 0;
    ValueCounts m_lengths;
    bool m_isInStretch = false;  // whether a sample came since the stretch began
    bool m_isTouched = false;
    bool m_isStartKnown = false;
    std::int64_t m_start = 0;
};

}  // namespace padreport
