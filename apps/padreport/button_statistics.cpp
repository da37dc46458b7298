#include "apps/padreport/button_statistics.h"

namespace padreport {

namespace {

constexpr std::int64_t MILLISECONDS_PER_SECOND = 1000;

}  // namespace

void ButtonStatistics::Add(const Sample& sample, bool isTimed) {
    ++m_sampleCount;
    m_isTouchedNow = sample.touched;
    m_isTimed = isTimed;
    m_settled.Add(sample);
    if (!isTimed) {
        ++m_untimedCount;
        return;
    }
    m_touches.Add(sample);
    if (m_lastTimed) {
        m_intervals.AddMilliseconds(sample.milliseconds - *m_lastTimed);
    }
    m_lastTimed = sample.milliseconds;
}

void ButtonStatistics::EndStretch() {
    m_settled.EndStretch();
    m_touches.EndStretch();
    m_drift.EndStretch();
    m_lastTimed.reset();
}

ValueCounts ButtonStatistics::GetCounts(Side side, unsigned value) const {
    ValueCounts counts;
    for (std::size_t part = 0; part < PART_COUNT; ++part) {
        counts.Add(GetPart(part, side, value));
    }
    return counts;
}

void ButtonStatistics::Count(const Sample& sample) {
    const auto part = static_cast<std::size_t>(sample.milliseconds / MILLISECONDS_PER_SECOND) % PART_COUNT;
    const Side side = sample.touched ? Side::TOUCHED : Side::REST;
    auto& counts = m_parts[part][static_cast<std::size_t>(side)];
    for (unsigned value = 0; value < VALUE_COUNT; ++value) {
        counts[value].Add(sample.values[value]);
    }
    if (m_isTimed && side == Side::REST) {
        m_drift.Add(sample);
    }
}

}  // namespace padreport
