#pragma once

// The commands of portprobe that show what there is, and change nothing. All need the PollThread.

#include "apps/portprobe/request.h"

/// Prints a table of the ports that there are. A port whose device is there but fails is reported to standard
/// error; when a board does not even tell what it is, the boards' ports are missing from the table.
/// @return whether there were ports and none failed; else standard error says what is wrong
/// @throws ErrnoException when standard output fails
bool List();

/// Prints all pins of all ports that there are; ports that fail as for List.
bool Info();

/// Prints pins of one port: their directions and levels, or their bare values.
/// @throws UsageError when the port does not have a pin that is asked for
/// @throws std::runtime_error "no such port"
/// @throws ErrnoException when the device or standard output fails
void Get(const Request& request);
