#include "lib/player/usb_bus_order.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include "lib/platform/message.h"
#include "lib/platform/udev_pointer.h"

namespace {

namespace fs = std::filesystem;

constexpr std::string_view DEVICES = "/devices/";
constexpr const char* NODES = "/firmware/devicetree/base";

const std::string CONNECTORS_PROPERTY = "/vantora,player/usb-connectors";

/// Reads numbers with points between them.
std::optional<UsbPosition> ParsePorts(std::string_view text) {
    UsbPosition ports;
    for (;;) {
        unsigned port = 0;
        const auto [after, error] = std::from_chars(text.data(), text.data() + text.size(), port);
        if (error != std::errc()) {
            return std::nullopt;
        }
        ports.push_back(port);
        text.remove_prefix(static_cast<std::size_t>(after - text.data()));
        if (text.empty()) {
            return ports;
        }
        if (text.front() != '.') {
            return std::nullopt;
        }
        text.remove_prefix(1);
    }
}

/// Whether a path is another one, or leads there.
bool LeadsTo(const std::string& path, const std::string& other) {
    return other.starts_with(path) && (other.size() == path.size() || other[path.size()] == '/');
}

}  // namespace

UsbBusOrder::UsbBusOrder(const DeviceTree& deviceTree) {
    const auto names = deviceTree.ReadOrReport(&DeviceTree::ReadTexts, CONNECTORS_PROPERTY);
    for (const std::string& name : names.value_or(std::vector<std::string>())) {
        std::optional<Connector> connector = ParseConnector(name);
        if (!connector) {
            PLATFORM_MESSAGE("Device tree: %s: '%s' is no USB port path\n", CONNECTORS_PROPERTY.c_str(),
                             name.c_str());
            m_connectors.clear();
            return;
        }
        m_connectors.push_back(std::move(*connector));
    }
}

UsbPosition UsbBusOrder::GetPosition(const UsbPosition& portPath,
                                     std::vector<std::string> controllerNames) const {
    controllerNames.push_back(std::to_string(portPath.front()));
    std::size_t found = m_connectors.size();
    for (std::size_t i = 0; i < m_connectors.size(); ++i) {
        // A device can be behind two listed connectors, one on a hub at the other: the nearer one counts.
        const bool nearer =
            found == m_connectors.size() || m_connectors[i].ports.size() > m_connectors[found].ports.size();
        if (nearer && IsAt(m_connectors[i], controllerNames, portPath)) {
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
    const char* const devicePath = udev_device_get_devpath(usbDevice);
    if (deviceName == nullptr || interfaceName == nullptr || devicePath == nullptr) {
        return std::nullopt;
    }
    const std::optional<UsbPosition> portPath = ParsePosition(deviceName);
    if (!portPath) {
        return std::nullopt;
    }
    return Place{order.GetPosition(*portPath, FindControllerNames(devicePath)), interfaceName,
                 "/dev/" + node};
}

std::optional<UsbPosition> UsbBusOrder::ParsePosition(const std::string& deviceName) {
    const std::size_t dash = deviceName.find('-');
    if (dash == std::string::npos) {
        return std::nullopt;  // a bus alone is no device
    }
    const std::optional<UsbPosition> bus = ParsePorts(deviceName.substr(0, dash));
    std::optional<UsbPosition> position = ParsePorts(deviceName.substr(dash + 1));
    if (!bus || bus->size() != 1 || !position) {
        return std::nullopt;
    }
    position->insert(position->begin(), bus->front());
    return position;
}

std::vector<std::string> UsbBusOrder::FindControllerNames(const std::string& devicePath,
                                                          const std::string& sysfs) {
    // The root hub's name is the last on the path that begins with "usb"; it hangs at the controller.
    const std::size_t rootHub = devicePath.rfind("/usb");
    if (!devicePath.starts_with(DEVICES) || rootHub == std::string::npos || rootHub <= DEVICES.size()) {
        return {};
    }
    std::vector<std::string> names{devicePath.substr(DEVICES.size(), rootHub - DEVICES.size())};

    // Where a controller's driver makes another device for it, only one of the two has the node.
    std::error_code error;
    const std::string nodes = fs::canonical(sysfs + NODES, error);
    fs::path device = devicePath.substr(1, devicePath.find('/', rootHub + 1) - 1);
    for (; !error && device.has_parent_path(); device = device.parent_path()) {
        std::error_code missing;
        const std::string node = fs::canonical(fs::path(sysfs) / device / "of_node", missing);
        if (!missing && LeadsTo(nodes, node)) {
            names.push_back(node.substr(nodes.size()));
            break;
        }
    }
    return names;
}

std::optional<UsbBusOrder::Connector> UsbBusOrder::ParseConnector(const std::string& name) {
    const std::size_t dash = name.rfind('-');
    if (name.find('/') == std::string::npos || dash == std::string::npos) {
        const std::optional<UsbPosition> position = ParsePosition(name);
        return position ? std::optional(Connector{std::to_string(position->front()),
                                                  UsbPosition(position->begin() + 1, position->end())})
                        : std::nullopt;
    }
    std::optional<UsbPosition> ports = ParsePorts(std::string_view(name).substr(dash + 1));
    return ports ? std::optional(Connector{name.substr(0, dash), std::move(*ports)}) : std::nullopt;
}

/// Whether a device is plugged into a connector, or into a hub there.
bool UsbBusOrder::IsAt(const Connector& connector, const std::vector<std::string>& controllerNames,
                       const UsbPosition& portPath) {
    const auto onTheWay = [&](const std::string& name) { return LeadsTo(connector.controller, name); };
    return connector.ports.size() < portPath.size() &&
           std::equal(connector.ports.begin(), connector.ports.end(), portPath.begin() + 1) &&
           std::any_of(controllerNames.begin(), controllerNames.end(), onTheWay);
}
