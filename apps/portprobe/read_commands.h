#pragma once

// The commands of portprobe that show what there is, and change nothing. All need the PollThread.

#include "apps/portprobe/request.h"

/// Prints a table of the ports that there are. A port whose device is there but fails is reported to standard
/// error; when a board does not even tell what it is, the boards' ports are missing from the table.
/// @return whether there were ports and none failed; else standard error says what is wrong
/// @throws ErrnoException when standard output fails
bool List();

/// Prints direction and level of each pin of a port.
/// @throws std::runtime_error "no such port"
/// @throws ErrnoException when the device or standard output fails
void Get(const Request& request);
