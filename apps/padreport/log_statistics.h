#pragma once

// Everything that is kept of one log while it is read.
//
// Not for concurrent use.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "apps/padreport/button_statistics.h"
#include "apps/padreport/log_reader.h"
#include "apps/padreport/timeline.h"
#include "apps/padreport/value_history.h"

namespace padreport {

/// What the INFO lines say about the board.
struct BoardInfo {
    std::map<unsigned, std::int32_t> thresholds;                   ///< of a touch, by button
    std::vector<std::pair<std::string, std::int32_t>> parameters;  ///< in the order of the lines

    /// Whether there were no INFO lines.
    bool IsEmpty() const { return thresholds.empty() && parameters.empty(); }
    /// Whether thresholds and parameters are the same.
    bool operator==(const BoardInfo&) const = default;
};

/// What is kept of one log.
class LogStatistics : public LogRecords {
public:
    /// @param history receives the timed samples; must outlive the statistics; nullptr where none is wanted
    explicit LogStatistics(ValueHistory* history = nullptr) : m_history(history) {}

    void OnSample(const Sample& sample) override;
    void OnThreshold(unsigned button, std::int32_t value) override;
    void OnParameter(std::string_view name, std::int32_t value) override;

    /// The log has ended.
    void Finish() { EndStretch(); }

    const Timeline& GetTimeline() const { return m_timeline; }  ///< the log's runs and times

    /// Of the last run that has INFO lines.
    const BoardInfo& GetInfo() const { return m_info; }

    /// Whether another run had other INFO lines: then the figures mix what should be compared.
    bool HasChangedInfo() const;

    /// By button.
    const std::map<unsigned, std::unique_ptr<ButtonStatistics>>& GetButtons() const { return m_buttons; }

private:
    void BeginInfo(bool isRepeated);
    void EndStretch();

    ValueHistory* m_history;
    Timeline m_timeline;
    std::map<unsigned, std::unique_ptr<ButtonStatistics>> m_buttons;
    BoardInfo m_info;
    BoardInfo m_previousInfo;   // of the run before that one
    bool m_hasSamples = false;  // since the INFO lines
    bool m_hasChangedInfo = false;
};

}  // namespace padreport
