#pragma once

// portprobe watch: prints what ports receive.

#include "apps/portprobe/request.h"
#include "lib/platform/stop_signals.h"

/// Prints the level of each input, or the value where a port has values, and then every change, as lines to
/// standard output, until a signal comes, the count is complete or the time is over. A signal that comes
/// while ports are being opened ends the process. Needs the PollThread.
/// @throws UsageError when a port has no such pins or edges
/// @throws Trouble with a port: it is not there, has nothing to watch, or its device fails or has been gone
///         for 10 seconds
/// @throws ErrnoException when standard output fails
void Watch(const Request& request, const StopSignals& stopSignals);
