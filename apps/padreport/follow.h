#pragma once

// The report of a log that is still being written: padtune's output, through a pipe.

#include "apps/padreport/log_report.h"
#include "lib/platform/stop_signals.h"

namespace padreport {

/// Reads standard input to its end. Where standard output is a terminal, it shows meanwhile what has been
/// read, four times a second; at the end the terminal is clear again. A signal ends the reading when
/// standard input does not end within seconds: Ctrl-C also reaches padtune, which then puts the board right,
/// and must not be cut off while it does.
/// @param signal index of the value, from 0
/// @param stopSignals made before
/// @return the report of the whole
/// @throws ErrnoException when standard input or output fails
LogReport FollowLog(unsigned signal, const StopSignals& stopSignals);

}  // namespace padreport
