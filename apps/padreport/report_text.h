#pragma once

// The report that an engineer reads: tables for the terminal, the conclusion first.

#include <string>

#include "apps/padreport/log_report.h"
#include "apps/padreport/terminal.h"

namespace padreport {

/// The whole report.
std::string RenderReport(const LogReport& report, const Terminal& terminal);

/// What changes while the log is still being written: progress, touches, verdicts, buttons.
std::string RenderLiveReport(const LogReport& report, const Terminal& terminal);

}  // namespace padreport
