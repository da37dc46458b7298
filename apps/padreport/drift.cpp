#include "apps/padreport/drift.h"

namespace padreport {

namespace {

constexpr double MILLISECONDS_PER_MINUTE = 60'000;

}  // namespace

void Drift::Sums::Add(const Sums& other) {
    timeTime += other.timeTime;
    for (unsigned i = 0; i < VALUE_COUNT; ++i) {
        timeValue[i] += other.timeValue[i];
    }
    milliseconds += other.milliseconds;
}

/// Keeps means and deviations up to date from sample to sample: sums of large squares would lose the small
/// differences.
void Drift::Add(const Sample& sample) {
    if (m_count++ == 0) {
        m_first = sample.milliseconds;
    }
    m_sums.milliseconds = sample.milliseconds - m_first;
    const double share = 1.0 / static_cast<double>(m_count);
    const double timeDeviation = static_cast<double>(sample.milliseconds - m_first) - m_meanTime;
    m_meanTime += timeDeviation * share;
    m_sums.timeTime += timeDeviation * (static_cast<double>(sample.milliseconds - m_first) - m_meanTime);
    for (unsigned i = 0; i < VALUE_COUNT; ++i) {
        m_meanValues[i] += (sample.values[i] - m_meanValues[i]) * share;
        m_sums.timeValue[i] += timeDeviation * (sample.values[i] - m_meanValues[i]);
    }
}

void Drift::EndStretch() {
    m_ended.Add(m_sums);
    m_sums = {};
    m_count = 0;
    m_meanTime = 0;
    m_meanValues = {};
}

std::optional<double> Drift::GetPerMinute(unsigned value) const {
    Sums all = m_ended;
    all.Add(m_sums);
    if (all.milliseconds < DRIFT_MILLISECONDS_MIN || all.timeTime <= 0) {
        return std::nullopt;
    }
    return all.timeValue[value] / all.timeTime * MILLISECONDS_PER_MINUTE;
}

}  // namespace padreport
