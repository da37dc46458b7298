#include "apps/padreport/log_statistics.h"

#include <algorithm>

namespace padreport {

void LogStatistics::OnSample(const Sample& sample) {
    m_hasSamples = true;
    const Timeline::Step step = m_timeline.Advance(sample);
    if (step.beginsStretch) {
        EndStretch();
    }
    std::unique_ptr<ButtonStatistics>& button = m_buttons[sample.button];
    if (!button) {
        button = std::make_unique<ButtonStatistics>();
    }
    button->Add(sample, step.isTimed);
    if (m_history != nullptr && step.isTimed) {
        m_history->Add(sample, step.beginsStretch, m_timeline.GetRuns());
    }
}

void LogStatistics::OnThreshold(unsigned button, std::int32_t value) {
    BeginInfo(m_info.thresholds.contains(button));
    m_info.thresholds[button] = value;
}

void LogStatistics::OnParameter(std::string_view name, std::int32_t value) {
    const auto& known = m_info.parameters;
    BeginInfo(
        std::any_of(known.begin(), known.end(), [&](const auto& entry) { return entry.first == name; }));
    m_info.parameters.emplace_back(name, value);
}

bool LogStatistics::HasChangedInfo() const {
    return m_hasChangedInfo || (!m_previousInfo.IsEmpty() && m_previousInfo != m_info);
}

/// @param isRepeated whether this run has said so already
void LogStatistics::BeginInfo(bool isRepeated) {
    if (!m_hasSamples && !isRepeated) {
        return;
    }
    m_hasChangedInfo = HasChangedInfo();
    m_previousInfo = std::exchange(m_info, {});
    m_hasSamples = false;
    m_timeline.BeginRun();
}

void LogStatistics::EndStretch() {
    for (const auto& [number, button] : m_buttons) {
        button->EndStretch();
    }
}

}  // namespace padreport
