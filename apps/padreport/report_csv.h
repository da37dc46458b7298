#pragma once

// Reports for spreadsheets: one row for each value of each button of each log. Times are seconds; what is
// not known is empty. Texts are quoted where they need it.

#include <string>
#include <vector>

#include "apps/padreport/log_report.h"

namespace padreport {

/// @return the row of headings, then the others, each with its line feed
std::string FormatCsv(const std::vector<LogReport>& reports);

}  // namespace padreport
