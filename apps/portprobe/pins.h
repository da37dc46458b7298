#pragma once

// What the pins of a port are and have at one moment.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "apps/portprobe/known_ports.h"
#include "lib/hardware/external_control.h"

/// Whether a pin is there, and what can be done with its direction.
enum class PinKind {
    ABSENT,      ///< the port counts it, but it is neither an input nor an output
    FIXED,       ///< its direction cannot be switched
    SWITCHABLE,  ///< it is an input or an output, as it was switched last
};

/// One pin: a level, or a whole value where the port has values. A fixed pin of the player's own lines can be
/// both an input and an output.
struct Pin {
    PinKind kind = PinKind::ABSENT;       ///< whether it is there, and whether its direction is fixed
    std::optional<std::uint32_t> input;   ///< nothing: it is no input now
    std::optional<std::uint32_t> output;  ///< as it was set; nothing: it is no output now
};

/// All pins of a port, by number.
using Pins = std::vector<Pin>;

/// Reads the pins of a port that nobody needs to have opened. Asks a board for nothing but the report that
/// the inputs come in: the kernel knows the rest. Needs the PollThread. Blocks for 10 seconds when a board
/// does not answer; its inputs are those that it sent last then.
/// @throws ErrnoException when the device fails
Pins FetchPins(const ListedPort& knownPort);

/// Reads the pins of an open port, of which the kernel knows everything.
/// @param port       open
/// @param knownPort  the same port
/// @throws ErrnoException when the device fails
Pins ReadPins(const ListedPort& knownPort, ExternalControl::Port& port);

/// Describes a pin, as "pin 8 output level 1 switchable" or "value 3 input 0x0000012C fixed".
std::string FormatPin(const ListedPort& knownPort, unsigned number, const Pin& pin);

/// @throws UsageError when the port does not count so many pins
void CheckNumber(const ListedPort& knownPort, const Pins& pins, unsigned number);

/// @throws UsageError when the port has no such pin, or it is absent
const Pin& GetPin(const ListedPort& knownPort, const Pins& pins, unsigned number);
