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
    std::string name;                        ///< of the log, as the report shows it
    std::string readTrouble;                 ///< what ended the reading early; empty when nothing did
    std::uint64_t samples = 0;               ///< of all buttons
    std::uint64_t buttons = 0;               ///< how many have samples
    std::optional<Verdict> worst;            ///< nothing without samples
    std::vector<unsigned> worstButtons;      ///< those with that verdict; none when it is the best one
    std::optional<double> lowestSeparation;  ///< of the signal, of all buttons
    std::uint64_t gaps = 0;                  ///< of all buttons
    std::uint64_t troubles = 0;              ///< lines of the log in which something was lost or went wrong
    std::vector<Remark> remarks;             ///< in the order of the buttons
};

/// Takes from a report what its line of the summary needs.
LogSummary Summarize(const LogReport& report);

/// Puts the worst first.
void SortSummaries(std::vector<LogSummary>& summaries);

/// The summary as text, with its line feeds.
/// @param summaries one line each, in this order
/// @param signal index of the value, from 0
/// @param terminal where the text is shown
std::string RenderSummaries(const std::vector<LogSummary>& summaries, unsigned signal,
                            const Terminal& terminal);

/// The summary for programs.
/// @param summaries in this order
/// @param signal index of the value, from 0
Json MakeSummariesJson(const std::vector<LogSummary>& summaries, unsigned signal);

}  // namespace padreport
