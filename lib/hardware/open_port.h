#pragma once

// Where ports come from: by name, whatever kind they are of.

#include <memory>
#include <stdexcept>
#include <string>

#include "lib/hardware/external_control.h"

namespace ExternalControl {

/// There is no port of this name.
class PortNotFoundException : public std::runtime_error {
public:
    PortNotFoundException() : std::runtime_error("External control port not found") {}
};

/// Opens a port by its name; the case of ASCII letters does not matter:
/// - "vantora": the player's own lines;
/// - "VX1000-compatible": a flat port of own lines and of an expander's, for older software;
/// - any other, such as "TouchBoard-0-LED": a board. The boards are looked for once in a process, at the
///   first such call: what is plugged in later cannot be opened.
/// Any thread, not from a callback, nor while something is held that one takes. A board that does not answer
/// blocks the call that opens it for about 10 seconds. The first call for a board also blocks for every board
/// that does not answer: for 10 seconds, and for 40 more when it is a touch board, which is asked for its
/// model.
/// @param inputCallback  gets the inputs; required
/// @param lostCallback   may be empty; only boards call it
/// @return the port, attached to the PollThread; must be released before that ends
/// @throws PortNotFoundException when there is no such board
/// @throws ErrnoException when a device fails, or the player's own lines are not there
std::shared_ptr<Port> OpenPort(const std::string& name, InputCallback inputCallback,
                               LostCallback lostCallback);

}  // namespace ExternalControl
