#pragma once

// The ports that there may be: those of the player itself, which have fixed names, and those of the boards
// that are plugged in.

#include <string>
#include <vector>

/// What is known about a port before it is opened.
struct KnownPort {
    std::string name;      ///< in its own spelling
    std::string node;      ///< empty: it has none of its own
    std::string location;  ///< the USB interface; empty: it is not on the USB
    unsigned bits = 1;     ///< of a value; 1: it has levels
    bool hasInputs = true;

    /// Whether its pins stand for whole values instead of levels.
    bool HasValues() const { return bits > 1; }
};

/// The player's own ports, whether they are there or not. Any thread.
const std::vector<KnownPort>& GetPlayerPorts();

/// Looks for the boards' ports, without asking touch boards for their model: OpenPort will. They are in the
/// order of their names. Blocks for some 60 ms a board. Any thread.
/// @throws ErrnoException when a board does not tell what it is
std::vector<KnownPort> FindBoardPorts();

/// Looks for one port; boards are only looked at when the name is not one of the player's own.
/// @param name  in upper or lower case
/// @throws std::runtime_error "no such port"
/// @throws ErrnoException when a board does not tell what it is
KnownPort FindPort(const std::string& name);
