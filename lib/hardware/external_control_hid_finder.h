#pragma once

// Which HID ports there are. The Finder looks at every hiddev node and describes what a port can be opened
// on; AvailablePorts gives the ports their names, as "TouchBoard-0-DIAGNOSTICS".

#include <linux/hiddev.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lib/hardware/board_identity.h"
#include "lib/hardware/external_control_hid_descriptor.h"
#include "lib/hardware/hiddev.h"
#include "lib/platform/string_operations.h"

namespace ExternalControl::Impl {

/// How many bits the values of a field have, by its logical range.
/// @return 1, 8, 16 or 32; nothing when a port cannot use the field
std::optional<std::uint32_t> BitsPerField(std::int32_t logicalMinimum, std::int32_t logicalMaximum);

/// Describes what there is. One thread at a time.
class Finder {
public:
    /// Looks at the nodes /dev/usb/hiddev0 to hiddev15, and sorts what it finds. Blocks for some 60 ms a
    /// board, and for 10 seconds a board that does not answer, if nobody has asked it for usages since it was
    /// plugged in. Nodes that cannot be opened and devices of others are passed over.
    /// @throws ErrnoException when a device does not tell what it is
    void Scan();

    /// Asks each touch board for its model: for some 40 seconds when it does not answer.
    /// @throws ErrnoException when a device fails
    void AskForModels();

    /// The same, but asks only those that have not told it since they were plugged in.
    /// @throws ErrnoException when a device fails
    void FindModels();

    /// @return the node that Scan found a Descriptor at; open as long as the Finder, or longer if it is
    /// shared
    std::shared_ptr<const HidDevice> GetDevice(std::uint32_t deviceNumber) const {
        return m_devices.at(deviceNumber);
    }

    /// Takes in one field: adds it to the Descriptor of the same fields, or as a new one.
    /// @param found  with the capability and the field index of that one field
    void OnFound(const Descriptor& found);

    /// Gives all Descriptors of a touch board what the board has answered.
    void OnIdentified(std::uint32_t deviceNumber, const BoardAnswer& answer);

    /// Sorts by USB position, keeping the order of equal ones. Unknown positions go last.
    void Sort();

    /// What was found, in the order of the search until Sort.
    const std::vector<DescriptorPtr>& GetDescriptors() const { return m_descriptors; }

private:
    void ScanDevice(const HidDevice& device, std::uint32_t deviceNumber);
    void ScanReports(const HidDevice& device, std::uint32_t reportType, const Descriptor& common);
    void ScanField(const HidDevice& device, const hiddev_field_info& field, const Descriptor& common);

    std::vector<DescriptorPtr> m_descriptors;
    std::map<std::uint32_t, std::shared_ptr<const HidDevice>>
        m_devices;  ///< by number; those of the Descriptors
};

/// The ports by name. Made on one thread; then any thread may ask.
class AvailablePorts {
public:
    /// By name; upper and lower case are the same.
    using Ports = std::map<std::string, DescriptorPtr, strata::LessIgnoringAsciiCase>;

    /// Names ports.
    /// @param descriptors  sorted by position
    /// @throws std::runtime_error "Unknown application id!"
    explicit AvailablePorts(const std::vector<DescriptorPtr>& descriptors);

    /// @param name  in upper or lower case
    /// @return null when there is no such port
    DescriptorPtr Find(const std::string& name) const;

    /// All ports by name, in the order of their names.
    const Ports& GetPorts() const { return m_ports; }

private:
    Ports m_ports;
};

}  // namespace ExternalControl::Impl
