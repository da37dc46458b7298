#pragma once

// The commands of portprobe that change pins. All need the PollThread, and release their port before they
// return. They throw std::runtime_error "no such port", ErrnoException when the device fails, and before
// anything is changed:
// - UsageError, when the port does not have a pin or a value;
// - std::runtime_error, when a pin cannot be what it is to be.

#include "apps/portprobe/request.h"
#include "lib/platform/stop_signals.h"

/// Sets outputs. A pin that is no output yet becomes one after its level has been set, so that no other level
/// shows on the line.
void Set(const Request& request);

/// Makes pins inputs.
void MakeInputs(const Request& request);

/// Switches pins of the player's own lines to other functions of the processor.
/// @throws std::runtime_error also when one cannot be switched; those before it have been
void SwitchFunctions(const Request& request);

/// Sets the driver's parameter of pins of the player's own lines.
void SetParameters(const Request& request);

/// Pulses outputs, after having made each one if it is none, until a signal comes, and leaves them low. A
/// signal that comes before they pulse ends the process.
/// @throws std::runtime_error also when the device fails and so ends a pulse
void Pulse(const Request& request, const StopSignals& stopSignals);
