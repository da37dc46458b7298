#pragma once

// Which samples of a button tell what it looks like at rest, and which what it looks like touched.
//
// The board decides late: the values rise before the star comes, and fall before it goes. So the star
// divides a button's samples into spans, and where a span lasts LONG_SPAN_MILLISECONDS or more, those of its
// samples that are less than EDGE_MILLISECONDS from a change of the star are set aside. The others are
// settled. A shorter span is settled as a whole: what noise makes of it would otherwise never be seen. A
// span whose beginning or end was not seen counts as a long one.
//
// Not for concurrent use.

#include <cstdint>
#include <deque>
#include <functional>

#include "apps/padreport/log_reader.h"

namespace padreport {

/// So near a change of the star, samples of long spans are not settled.
constexpr std::int64_t EDGE_MILLISECONDS = 50;
/// From this length on a span is a long one.
constexpr std::int64_t LONG_SPAN_MILLISECONDS = 4 * EDGE_MILLISECONDS;

/// A filter for the samples of one button.
class SettledSamples {
public:
    /// @param consumer receives the settled samples, in their order, as soon as they are known to be settled
    explicit SettledSamples(std::function<void(const Sample&)> consumer) : m_consumer(std::move(consumer)) {}

    /// @param sample of the one button, in a stretch of time
    void Add(const Sample& sample);

    /// The stretch has ended, or the log: no change of the star follows.
    void EndStretch();

    /// Samples that were set aside.
    std::uint64_t GetEdgeCount() const { return m_edgeCount; }

private:
    void BecomeLong();
    void PassOnUntil(std::int64_t milliseconds);
    void SetAsideUntil(std::int64_t milliseconds);
    void EndSpan(std::int64_t changeMilliseconds);

    std::function<void(const Sample&)> m_consumer;
    std::deque<Sample> m_pending;  // of the present span
    bool m_followsChange = false;  // the present span begins with a change of the star
    bool m_isLong = false;         // the present span
    std::int64_t m_spanStart = 0;
    std::uint64_t m_edgeCount = 0;
};

}  // namespace padreport
