#pragma once

// The report as a page for a browser: one file that needs nothing else. The page shows what the report in
// the terminal says, and a strip for each button that can be zoomed in time.

#include <string>
#include <string_view>

#include "apps/padreport/log_report.h"
#include "apps/padreport/value_history.h"

namespace padreport {

/// How much of the page the strips take at most, however long the log is and however many buttons it has.
constexpr std::size_t PAGE_STRIPS_BYTES_MAX = 2'500'000;

/// @param report what the page shows
/// @param history of the same log; made coarser where it would not fit
std::string RenderPage(const LogReport& report, ValueHistory history);

/// A text as it stands in HTML, between tags and in attributes. Bytes that are no UTF-8 stay as they are: a
/// browser shows a replacement for them.
std::string EscapeHtml(std::string_view text);

/// The numbers that the page's script draws the strips from, as JSON. There is no text of the log in them.
std::string FormatStrips(const LogReport& report, const ValueHistory& history);

}  // namespace padreport
