#pragma once

// portprobe record: writes down what a board is and what it sends.

#include "apps/portprobe/request.h"
#include "lib/platform/stop_signals.h"

/// Prints what the board of a port is, and then every report that it sends, as lines to standard output,
/// until a signal comes, the count is complete or the time is over. A signal that comes while the board is
/// being looked for ends the process.
/// @throws Trouble with the port: it is not there, is not a board's, or the kernel shows no reports
/// @throws std::runtime_error when the board goes
/// @throws ErrnoException when the board or standard output fails
void Record(const Request& request, const StopSignals& stopSignals);
