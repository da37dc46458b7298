#pragma once

// How a comparison looks: tables for the terminal, the conclusion first; JSON for programs.

#include <string>

#include "apps/padreport/comparison.h"
#include "apps/padreport/report_json.h"
#include "apps/padreport/terminal.h"

namespace padreport {

/// The comparison as text, with its line feeds.
std::string RenderComparison(const LogReport& before, const LogReport& after, const Terminal& terminal);

/// The comparison for programs.
Json MakeComparisonJson(const LogReport& before, const LogReport& after);

}  // namespace padreport
