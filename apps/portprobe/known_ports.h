#pragma once

// The ports that there may be: the player's own lines, and those of the boards that are plugged in.

#include <memory>
#include <string>
#include <vector>

#include "lib/hardware/external_control.h"
#include "lib/hardware/external_control_hid.h"
#include "lib/hardware/external_control_hid_finder.h"

/// What is known about a port before it is opened.
struct KnownPort {
    std::string name;      ///< in its own spelling
    std::string node;      ///< path of the device node
    std::string location;  ///< the USB interface; empty: it is not on the USB
    ExternalControl::Impl::PortOnHid::DescriptorPtr descriptor;  ///< null: the player's own lines
    const ExternalControl::Impl::HidDevice* device =
        nullptr;  ///< of the board; lives as long as the KnownPorts

    /// Bits of a value; 1: the port has levels.
    unsigned GetBits() const { return descriptor ? descriptor->bitsPerField : 1; }
    bool HasValues() const { return GetBits() > 1; }
    bool HasInputs() const;
};

/// The ports by name. Each board that was found is opened once and stays open, so that asking it for more
/// costs nothing. One thread at a time.
class KnownPorts {
public:
    /// Knows the player's own lines, whether they are there or not.
    KnownPorts();

    /// Looks for the boards' ports, and adds them in the order of their names. Blocks for some 60 ms a board.
    /// Once.
    /// @throws ErrnoException when a board does not tell what it is
    void FindBoards();

    /// The same, with the boards' models. A touch board that has not told its model since it was plugged in
    /// is asked: for some 40 seconds, when it does not answer.
    void FindBoardsAndModels();

    const std::vector<KnownPort>& GetAll() const { return m_ports; }

    /// Looks for one port; boards are only looked for when the name is not one of those known.
    /// @param name  in upper or lower case
    /// @throws std::runtime_error "no such port"
    /// @throws ErrnoException when a board does not tell what it is
    KnownPort Find(const std::string& name);

private:
    void NameBoards();
    const KnownPort* FindKnown(const std::string& name) const;

    ExternalControl::Impl::Finder m_finder;
    std::vector<KnownPort> m_ports;
    bool m_hasBoards = false;
};

/// Opens a port. Unlike OpenPort it asks no board for its model.
/// @return the port, attached to the PollThread
/// @throws ErrnoException when the device fails or is gone
std::shared_ptr<ExternalControl::Port> Open(const KnownPort& knownPort,
                                            ExternalControl::InputCallback inputCallback,
                                            ExternalControl::LostCallback lostCallback);

/// The same, for who has no use for what it receives.
std::shared_ptr<ExternalControl::Port> Open(const KnownPort& knownPort);
