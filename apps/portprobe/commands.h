#pragma once

// The commands of portprobe that ask or tell a port something; watch.h has the one that listens. All need the
// PollThread, and release their ports before they return.

#include "apps/portprobe/known_ports.h"
#include "apps/portprobe/request.h"
#include "apps/portprobe/stop_signals.h"

/// Prints a table of the ports that can be opened. A port whose device is there but fails is reported to
/// standard error; when a board does not even tell what it is, the boards' ports are missing from the table.
/// @return whether there were ports and none failed; else standard error says what is wrong
/// @throws ErrnoException when standard output fails
bool List();

/// Prints direction and level of each pin.
/// @throws ErrnoException when the device or standard output fails
void Get(const KnownPort& knownPort);

/// Sets outputs, after having made each one if it is none.
/// @throws UsageError before anything is sent, when the port has no such pin or its pins take no such value
/// @throws std::runtime_error when a pin cannot be an output
/// @throws ErrnoException when the device fails
void Set(const KnownPort& knownPort, const Request& request);

/// Pulses outputs, after having made each one if it is none, until a signal comes, and leaves them low. A
/// pulse that ends by itself, because the device fails, is noticed only when the line cannot be set low in
/// the end.
/// @throws UsageError before anything is sent, when the port has no such pin
/// @throws std::runtime_error when the port cannot pulse, or the pin cannot be an output
/// @throws ErrnoException when the device fails
void Pulse(const KnownPort& knownPort, const Request& request, const StopSignals& stopSignals);
