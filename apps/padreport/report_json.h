#pragma once

// Reports for programs. Keys are lower case with their unit; what is not known is null. Times are seconds.

#include <nlohmann/json.hpp>

#include "apps/padreport/log_report.h"

namespace padreport {

/// The keys stay in their order.
using Json = nlohmann::ordered_json;

/// Everything that the report of one log says.
Json MakeReportJson(const LogReport& report);

/// @return the text with a line feed; bytes that are no UTF-8, in names of files for instance, are replaced
std::string FormatJson(const Json& json);

}  // namespace padreport
