#include "apps/padreport/settled_samples.h"

#include <cstddef>
#include <limits>

namespace padreport {

namespace {

constexpr std::int64_t FOREVER = std::numeric_limits<std::int64_t>::max();

// Untimed lines all bear the same stamp: not all of them can be held back.
constexpr std::size_t PENDING_MAX = 1024;

}  // namespace

void SettledSamples::Add(const Sample& sample) {
    const std::int64_t now = sample.milliseconds;
    if (!m_pending.empty() && sample.touched != m_pending.back().touched) {
        EndSpan(now);
        m_followsChange = true;
    }
    if (m_pending.empty()) {
        m_spanStart = now;
        m_isLong = !m_followsChange;
    }
    m_pending.push_back(sample);

    if (!m_isLong && now - m_spanStart >= LONG_SPAN_MILLISECONDS) {
        BecomeLong();
    }
    if (m_isLong) {
        PassOnUntil(now - EDGE_MILLISECONDS);
    }
    if (m_pending.size() > PENDING_MAX) {
        m_consumer(m_pending.front());
        m_pending.pop_front();
    }
}

void SettledSamples::EndStretch() {
    if (!m_isLong) {
        BecomeLong();
    }
    PassOnUntil(FOREVER);
    m_followsChange = false;
}

/// The present span begins with a change of the star.
void SettledSamples::BecomeLong() {
    m_isLong = true;
    SetAsideUntil(m_spanStart + EDGE_MILLISECONDS - 1);
}

/// @param changeMilliseconds when the star changed
void SettledSamples::EndSpan(std::int64_t changeMilliseconds) {
    if (!m_isLong && changeMilliseconds - m_spanStart >= LONG_SPAN_MILLISECONDS) {
        BecomeLong();
    }
    if (m_isLong) {
        PassOnUntil(changeMilliseconds - EDGE_MILLISECONDS);
        SetAsideUntil(FOREVER);
    } else {
        PassOnUntil(FOREVER);
    }
}

void SettledSamples::PassOnUntil(std::int64_t milliseconds) {
    while (!m_pending.empty() && m_pending.front().milliseconds <= milliseconds) {
        m_consumer(m_pending.front());
        m_pending.pop_front();
    }
}

void SettledSamples::SetAsideUntil(std::int64_t milliseconds) {
    while (!m_pending.empty() && m_pending.front().milliseconds <= milliseconds) {
        m_pending.pop_front();
        ++m_edgeCount;
    }
}

}  // namespace padreport
