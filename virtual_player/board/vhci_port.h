#pragma once

// One physical port of the kernel's virtual USB host controller, and what the kernel makes of the device in
// it.

#include <optional>
#include <string>

#include "virtual_player/common/file_descriptor.h"

namespace VirtualPlayer {

constexpr unsigned VHCI_PORT_MAX = 7;

/// Plugs a device into a port.
/// @param port  0 to VHCI_PORT_MAX
/// @return the device's end of the cable; closing it pulls the plug. None while the port is still in use.
/// @throws std::system_error when the kernel has no virtual host controller or refuses
std::optional<FileDescriptor> PlugIn(unsigned port);

/// @return the path of the hiddev node of the device in that port, as soon as it can be opened; empty before
std::string FindHiddevNode(unsigned port);

/// @return whether the kernel still knows a device in that port
bool IsPortOccupied(unsigned port);

}  // namespace VirtualPlayer
