#pragma once

// Where on the USB a device node's device sits. Boards are numbered by the connector they are plugged into,
// not by the order in which they were found, and a board that comes back is recognised by its connector.

#include <optional>
#include <string>
#include <vector>

/// The ports on the way to a device: the bus number, then the port of the root hub, of the next hub and so
/// on. Compares by value: port 2 comes before port 10.
using UsbPosition = std::vector<unsigned>;

class UsbBusOrder {
public:
    struct Place {
        UsbPosition position;
        /// The USB interface, as "1-4.2:1.0". Always the same for the same interface of a device at the same
        /// connector; names the interface because one device may have several HID nodes.
        std::string location;
        std::string nodeName;  ///< as "/dev/usb/hiddev3"
    };

    /// Tells where a node's device sits. Any thread.
    /// @param node  path of the node below /dev, as "usb/hiddev3"
    /// @return nothing when there is no such node on the USB
    static std::optional<Place> Find(const std::string& node);

    /// Reads the kernel's name of a USB device.
    /// @param deviceName  as "1-4.2"
    /// @return nothing when the name is not of that form
    static std::optional<UsbPosition> ParsePosition(const std::string& deviceName);
};
