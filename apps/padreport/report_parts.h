#pragma once

// What a report says, apart from how it looks: its tables and sentences, for whoever lays them out.

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "apps/padreport/log_report.h"
#include "apps/padreport/text_table.h"

namespace padreport {

/// How many rules there are.
constexpr std::size_t RULE_COUNT = 5;

/// The rules behind the figures, a paragraph each; the headers say more.
extern const std::array<const char*, RULE_COUNT> REPORT_RULES;

/// "2 runs, 61.200 s, 6020 samples of 4 buttons"
std::string DescribeRuns(const LogFigures& figures);

/// What the INFO lines say.
std::string DescribeBoard(const BoardInfo& info);

/// By the signal, one row a button.
TextTable MakeVerdictTable(const LogReport& report);

/// Rates, gaps, touches, one row a button.
TextTable MakeButtonTable(const LogFigures& figures);

/// One row for each value of each button.
TextTable MakeValueTable(const LogFigures& log);

/// A verdict, in a style that tells how bad it is.
Cell MakeVerdictCell(Verdict verdict);

/// Which buttons differ from the others, which have no threshold that can be proposed, sentence by sentence.
std::vector<std::string> ListRemarks(const LogReport& report);

/// What the command line is for.
std::string DescribeCommand(const LogReport& report);

/// The command line that sets the proposed thresholds, in pieces that belong on one line each; empty when
/// there is nothing to set.
std::vector<std::string> MakeThresholdCommand(const LogReport& report);

/// What else the log held.
std::string DescribeLines(const LogFigures& figures);

/// What was wrong in the log; empty when nothing was.
std::vector<std::string> ListTroubles(const LogFigures& figures);

}  // namespace padreport
