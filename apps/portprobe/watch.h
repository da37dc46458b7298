#pragma once

// portprobe watch: prints what a port receives.

#include "apps/portprobe/request.h"
#include "apps/portprobe/stop_signals.h"

/// Prints every change of a level, or of a value where the port has values, as a line to standard output,
/// until a signal comes or the device has been gone for 10 seconds. Needs the PollThread.
/// @throws std::runtime_error when there is nothing to watch, or when the device is gone
/// @throws ErrnoException when the device or standard output fails
void Watch(const Request& request, const StopSignals& stopSignals);
