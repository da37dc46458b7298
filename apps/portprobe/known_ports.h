#pragma once

// How the commands come to their ports.

#include <memory>
#include <string>

#include "lib/hardware/external_control.h"
#include "lib/hardware/open_port.h"

using ExternalControl::ListedPort;

/// Looks for one port; for boards only when it is not the player's own lines.
/// @param name  in upper or lower case
/// @throws std::runtime_error "no such port"
/// @throws ErrnoException when a board does not tell what it is
ListedPort FindKnownPort(const std::string& name);

/// Opens a port for a command that has no use for what the port receives. Asks no board for its model.
/// @return the port, attached to the PollThread
/// @throws ErrnoException when the device fails or is gone
std::shared_ptr<ExternalControl::Port> Open(const ListedPort& port);
