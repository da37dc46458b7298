#pragma once

// The commands of portprobe that change pins. All need the PollThread, and release their port before they
// return. They throw std::runtime_error "no such port", ErrnoException when the device fails, and before
// anything is changed:
// - UsageError, when the port does not have a pin or a value;
// - std::runtime_error, when a pin cannot be what it is to be.

#include "apps/portprobe/request.h"
#include "apps/portprobe/stop_signals.h"

/// Sets outputs, after having made each one if it is none.
void Set(const Request& request);

/// Pulses outputs, after having made each one if it is none, until a signal comes, and leaves them low. A
/// pulse that ends by itself, because the device fails, is noticed only when the line cannot be set low in
/// the end.
void Pulse(const Request& request, const StopSignals& stopSignals);
