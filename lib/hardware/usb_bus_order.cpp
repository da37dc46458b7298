#include "lib/hardware/usb_bus_order.h"

#include <algorithm>
#include <charconv>
#include <system_error>

#include "lib/platform/trace.h"
#include "lib/platform/udev_pointer.h"

namespace {

const std::string CONNECTORS_PROPERTY = "/vantora,player/usb-connectors";

/// Whether a device is plugged into a connector, or into a hub there.
bool IsAt(const UsbPosition& connector, const UsbPosition& device) {
    return connector.size() <= device.size() &&
           std::equal(connector.begin(), connector.end(), device.begin());
}

}  // namespace

UsbBusOrder::UsbBusOrder(const DeviceTree& deviceTree) {
    const auto names = deviceTree.ReadOrReport(&DeviceTree::ReadTexts, CONNECTORS_PROPERTY);
    for (const std::string& name : names.value_or(std::vector<std::string>())) {
        const std::optional<UsbPosition> connector = ParsePosition(name);
        if (!connector) {
            PLATFORM_MESSAGE("Device tree: %s: '%s' is no USB port path\n", CONNECTORS_PROPERTY.c_str(),
                             name.c_str());
            m_connectors.clear();
            return;
        }
        m_connectors.push_back(*connector);
    }
}

UsbPosition UsbBusOrder::GetPosition(const UsbPosition& portPath) const {
    std::size_t found = m_connectors.size();
    for (std::size_t i = 0; i < m_connectors.size(); ++i) {
        // Behind two listed connectors, of which one is on a hub at the other, the nearer one counts.
        const bool nearer =
            found == m_connectors.size() || m_connectors[i].size() > m_connectors[found].size();
        if (nearer && IsAt(m_connectors[i], portPath)) {
            found = i;
        }
    }
    UsbPosition position{static_cast<unsigned>(found)};
    position.insert(position.end(), portPath.begin(), portPath.end());
    return position;
}

std::optional<UsbBusOrder::Place> UsbBusOrder::Find(const std::string& node) {
    // Never destroyed: a board may return while a failed display call ends the process.
    static const UsbBusOrder& order = *new UsbBusOrder{DeviceTree()};
    const std::lock_guard lock(strata::udevMutex);
    const strata::UdevPointer udev(udev_new());
    if (!udev) {
        return std::nullopt;
    }
    const std::string name = node.substr(node.rfind('/') + 1);
    const strata::UdevDevicePointer device(
        udev_device_new_from_subsystem_sysname(udev.get(), "usbmisc", name.c_str()));
    if (!device) {
        return std::nullopt;
    }
    // The parents belong to the device.
    udev_device* usbInterface =
        udev_device_get_parent_with_subsystem_devtype(device.get(), "usb", "usb_interface");
    udev_device* usbDevice = udev_device_get_parent_with_subsystem_devtype(device.get(), "usb", "usb_device");
    if (usbInterface == nullptr || usbDevice == nullptr) {
        return std::nullopt;
    }
    const char* const deviceName = udev_device_get_sysname(usbDevice);
    const char* const interfaceName = udev_device_get_sysname(usbInterface);
    if (deviceName == nullptr || interfaceName == nullptr) {
        return std::nullopt;
    }
    const std::optional<UsbPosition> portPath = ParsePosition(deviceName);
    if (!portPath) {
        return std::nullopt;
    }
    return Place{order.GetPosition(*portPath), interfaceName, "/dev/" + node};
}

std::optional<UsbPosition> UsbBusOrder::ParsePosition(const std::string& deviceName) {
    UsbPosition position;
    const char* next = deviceName.data();
    const char* const end = next + deviceName.size();
    for (;;) {
        unsigned number = 0;
        const auto [after, error] = std::from_chars(next, end, number);
        if (error != std::errc()) {
            return std::nullopt;
        }
        position.push_back(number);
        if (after == end) {
            // A bus alone is no device.
            return position.size() > 1 ? std::optional(position) : std::nullopt;
        }
        const char separator = position.size() == 1 ? '-' : '.';
        if (*after != separator) {
            return std::nullopt;
        }
        next = after + 1;
    }
}
