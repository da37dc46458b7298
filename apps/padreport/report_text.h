#pragma once

// The report that an engineer reads: tables for the terminal, the conclusion first.

#include <string>

#include "apps/padreport/log_report.h"
#include "apps/padreport/terminal.h"
#include "apps/padreport/text_table.h"

namespace padreport {

/// The whole report.
std::string RenderReport(const LogReport& report, const Terminal& terminal);

/// What changes while the log is still being written: progress, touches, verdicts, buttons.
std::string RenderLiveReport(const LogReport& report, const Terminal& terminal);

/// A verdict, in a style that tells how bad it is.
Cell MakeVerdictCell(Verdict verdict);

/// What was wrong in the log, one line each; empty when nothing was.
std::string RenderTroubles(const LogFigures& figures, const Terminal& terminal);

/// The command line that sets the proposed thresholds, in pieces that belong on one line each; empty when
/// there is nothing to set.
std::vector<std::string> MakeThresholdCommand(const LogReport& report);

}  // namespace padreport
