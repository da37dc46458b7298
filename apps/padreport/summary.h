#pragma once

// One line a log, for a fleet of players: the worst log comes first.
//
// Worst are the logs without samples, then those with the worst verdict (verdict.h), then those with more
// buttons of that verdict, then those with the lower separation of their worst button, then by name.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "apps/padreport/log_report.h"
#include "apps/padreport/report_json.h"
#include "apps/padreport/terminal.h"

namespace padreport {

/// So little of a log that thousands can be kept.
struct LogSummary {
    std::string name;
    std::string readTrouble;
    std::uint64_t samples = 0;
    std::uint64_t buttons = 0;
    std::optional<Verdict> worst;            ///< nothing without samples
    std::vector<unsigned> worstButtons;      ///< those with that verdict; none when it is the best one
    std::optional<double> lowestSeparation;  ///< of the signal, of all buttons
    std::uint64_t gaps = 0;                  ///< of all buttons
    std::uint64_t troubles = 0;              ///< lines of the log in which something was lost or went wrong
    std::vector<Remark> remarks;
};

LogSummary Summarize(const LogReport& report);

/// Puts the worst first.
void SortSummaries(std::vector<LogSummary>& summaries);

std::string RenderSummaries(const std::vector<LogSummary>& summaries, unsigned signal,
                            const Terminal& terminal);

Json MakeSummariesJson(const std::vector<LogSummary>& summaries, unsigned signal);

}  // namespace padreport
