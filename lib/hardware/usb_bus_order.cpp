#include "lib/hardware/usb_bus_order.h"

#include <charconv>
#include <system_error>

#include "lib/platform/udev_pointer.h"

std::optional<UsbBusOrder::Place> UsbBusOrder::Find(const std::string& node) {
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
    const std::optional<UsbPosition> position = ParsePosition(udev_device_get_sysname(usbDevice));
    if (!position) {
        return std::nullopt;
    }
    return Place{*position, udev_device_get_sysname(usbInterface), "/dev/" + node};
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
