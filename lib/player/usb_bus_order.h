#pragma once

// Where on the USB a device node's device sits. Boards are numbered by the connector they are plugged into,
// not by the order in which they were found, and a board that comes back is recognised by its connector.

#include <optional>
#include <string>
#include <vector>

#include "lib/player/device_tree.h"

/// Compares by value, first number first: port 2 comes before port 10. Either
/// - a port path, the ports on the way to a device: the bus number, then the port of the root hub, of the
///   next hub and so on; or
/// - a place in the bus order: the connector's place among the player's connectors, then the port path.
using UsbPosition = std::vector<unsigned>;

/// The order of the player's USB connectors, which the device tree lists (docs/hardware-description.md), each
/// by the ports on the way to it from a bus, which has its number by chance, or from a controller. A device
/// plugged into a connector, or into a hub there, comes before those at the next connector; devices at
/// connectors that are not listed come last. Among themselves devices are ordered by port path.
class UsbBusOrder {
public:
    /// Where a device node's device sits, and how it is recognised.
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

    /// Tells what a list of connectors may call the controller that a USB device is on. Any thread.
    /// @param devicePath  the device below /sys, as "/devices/platform/usb.0/usb1/1-4/1-4.2"
    /// @param sysfs       where it is; other than the default in tests
    /// @return the controller's device path, as "platform/usb.0", and the device-tree node that it, or else
    ///         what it hangs at, was made from, as "/soc/usb@1000"; no node where there is none
    static std::vector<std::string> FindControllerNames(const std::string& devicePath,
                                                        const std::string& sysfs = "/sys");

    /// Reads the list of connectors. A list that cannot be read is reported with one line and counts as
    /// absent.
    explicit UsbBusOrder(const DeviceTree& deviceTree);

    /// Any thread.
    /// @param portPath         of the device
    /// @param controllerNames  what FindControllerNames says of the device
    /// @return the place in the bus order of the device at a port path
    UsbPosition GetPosition(const UsbPosition& portPath, std::vector<std::string> controllerNames) const;

private:
    struct Connector {
        std::string controller;  ///< the number of the bus, a device path or a device-tree node
        UsbPosition ports;       ///< from that on
    };

    static std::optional<Connector> ParseConnector(const std::string& name);
    static bool IsAt(const Connector& connector, const std::vector<std::string>& controllerNames,
                     const UsbPosition& portPath);

    std::vector<Connector> m_connectors;  ///< changes in the constructor only
};
