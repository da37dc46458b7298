#pragma once

// Where on the USB a device node's device sits. Boards are numbered by the connector they are plugged into,
// not by the order in which they were found, and a board that comes back is recognised by its connector.

#include <optional>
#include <string>
#include <vector>

#include "lib/hardware/device_tree.h"

/// Compares by value, first number first: port 2 comes before port 10. Either
/// - a port path, the ports on the way to a device: the bus number, then the port of the root hub, of the
///   next hub and so on; or
/// - a place in the bus order: the connector's place among the player's connectors, then the port path.
using UsbPosition = std::vector<unsigned>;

/// The order of the player's USB connectors, which the device tree lists (docs/hardware-description.md). A
/// device plugged into a connector, or into a hub there, comes before those at the next connector; devices at
/// connectors that are not listed come last. Among themselves devices are ordered by port path.
class UsbBusOrder {
public:
    struct Place {
        UsbPosition position;  ///< in the bus order
        /// The USB interface, as "1-4.2:1.0". Always the same for the same interface of a device at the same
        /// connector; names the interface because one device may have several HID nodes.
        std::string location;
        std::string nodeName;  ///< as "/dev/usb/hiddev3"
    };

    /// Tells where a node's device sits. Any thread. The device tree is read at the first call in the life of
    /// the process.
    /// @param node  path of the node below /dev, as "usb/hiddev3"
    /// @return nothing when there is no such node on the USB
    static std::optional<Place> Find(const std::string& node);

    /// Reads the kernel's name of a USB device. Any thread.
    /// @param deviceName  as "1-4.2"
    /// @return the port path; nothing when the name is not of that form
    static std::optional<UsbPosition> ParsePosition(const std::string& deviceName);

    /// Reads the list of connectors. A list that cannot be read is reported with one line and counts as
    /// absent.
    explicit UsbBusOrder(const DeviceTree& deviceTree);

    /// Any thread.
    /// @return the place in the bus order of the device at a port path
    UsbPosition GetPosition(const UsbPosition& portPath) const;

private:
    std::vector<UsbPosition> m_connectors;  ///< port paths; changes in the constructor only
};
