#include "lib/hardware/open_port.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "lib/hardware/board_identity.h"
#include "lib/hardware/external_control_hid.h"
#include "lib/hardware/external_control_hid_descriptor.h"
#include "lib/hardware/external_control_hid_finder.h"
#include "lib/hardware/external_control_input_driver.h"
#include "lib/hardware/external_control_legacy.h"
#include "lib/hardware/hiddev.h"
#include "lib/platform/string_operations.h"

namespace ExternalControl {
namespace {

constexpr const char* LINES_NAME = "vantora";

std::shared_ptr<Port> OpenHidPort(const std::string& name, InputCallback inputCallback,
                                  LostCallback lostCallback) {
    static std::mutex mutex;
    static std::unique_ptr<const Impl::AvailablePorts> availablePorts;

    const std::lock_guard lock(mutex);
    // Outlives the first opening of a port: as long as it keeps the boards' nodes open, opening one of them
    // again takes no time.
    Impl::Finder finder;
    if (!availablePorts) {
        finder.Scan();
        finder.AskForModels();
        availablePorts = std::make_unique<Impl::AvailablePorts>(finder.GetDescriptors());
    }
    const Impl::PortOnHid::DescriptorPtr descriptor = availablePorts->Find(name);
    if (!descriptor) {
        throw PortNotFoundException();
    }
    return Impl::PortOnHid::Open(*descriptor, std::move(inputCallback), std::move(lostCallback));
}

std::vector<ListedPort> NamePorts(const Impl::Finder& finder) {
    std::vector<ListedPort> ports(1);  // the player's own lines
    const Impl::AvailablePorts available(finder.GetDescriptors());
    for (const auto& [name, descriptor] : available.GetPorts()) {
        ports.emplace_back(name, descriptor, finder.GetDevice(descriptor->hid_device));
    }
    return ports;
}

}  // namespace

std::shared_ptr<Port> OpenPort(const std::string& name, InputCallback inputCallback,
                               LostCallback lostCallback) {
    // Without the mutex of the boards' table: LegacyPort opens its own boards through OpenPort.
    if (strata::EqualIgnoringAsciiCase(name, LINES_NAME)) {
        return Impl::PortOnLinuxInputDriver::Open(std::move(inputCallback));
    }
    if (strata::EqualIgnoringAsciiCase(name, "VX1000-compatible")) {
        return std::make_shared<Impl::LegacyPort>(std::move(inputCallback));
    }
    return OpenHidPort(name, std::move(inputCallback), std::move(lostCallback));
}

ListedPort::ListedPort() : m_name(LINES_NAME) {}

ListedPort::ListedPort(std::string name, std::shared_ptr<const Impl::Descriptor> descriptor,
                       std::shared_ptr<const Impl::HidDevice> device)
    : m_name(std::move(name)), m_descriptor(std::move(descriptor)), m_device(std::move(device)) {}

const std::string& ListedPort::GetNode() const {
    static const std::string LINES_NODE = Impl::PortOnLinuxInputDriver::DEVICE_PATH;
    return m_descriptor ? m_descriptor->nodeName : LINES_NODE;
}

const std::string& ListedPort::GetLocation() const {
    static const std::string NOWHERE;
    return m_descriptor ? m_descriptor->location : NOWHERE;
}

PortKind ListedPort::GetKind() const {
    if (!m_descriptor) {
        return PortKind::LINES;
    }
    return GetBits() == 1 ? PortKind::LEVELS : PortKind::VALUES;
}

bool ListedPort::HasInputs() const {
    return !m_descriptor || (m_descriptor->capabilities & Impl::CAPABILITY_INPUT) != 0;
}

unsigned ListedPort::GetBits() const {
    return m_descriptor ? m_descriptor->bitsPerField : 1;
}

unsigned ListedPort::GetPinCount() const {
    return m_descriptor->count;
}

std::string ListedPort::GetProperties() const {
    return Impl::FormatBoardProperties(m_descriptor->modelCode, m_descriptor->headerValue);
}

std::string ListedPort::ReadVersion() const {
    return m_device->GetVersion();
}

void ListedPort::FetchInputs() const {
    if (m_descriptor->inputField != Impl::Descriptor::NO_FIELD) {
        m_device->FetchReport(m_descriptor->reportId, "GetReport");
    }
}

PortValues ListedPort::ReadValues() const {
    const auto read = [this](const Impl::HidField& field) -> std::vector<std::uint32_t> {
        if (field.index == Impl::Descriptor::NO_FIELD) {
            return {};
        }
        const hiddev_usage_ref_multi usages = m_device->GetUsages(field, m_descriptor->count, "GetUsages");
        return {usages.values, usages.values + usages.num_values};
    };
    PortValues values = {read(m_descriptor->GetInputs()), read(m_descriptor->GetOutputs()),
                         read(m_descriptor->GetDirections())};
    if (m_descriptor->IsActiveLow() && !HasValues()) {
        for (std::uint32_t& level : values.inputs) {
            level = level == 0;
        }
    }
    return values;
}

std::shared_ptr<Port> ListedPort::Open(InputCallback inputCallback, LostCallback lostCallback) const {
    if (!m_descriptor) {
        return Impl::PortOnLinuxInputDriver::Open(std::move(inputCallback));
    }
    return Impl::PortOnHid::Open(*m_descriptor, std::move(inputCallback), std::move(lostCallback));
}

std::vector<ListedPort> ListPorts() {
    Impl::Finder finder;
    finder.Scan();
    return NamePorts(finder);
}

std::vector<ListedPort> ListPortsWithModels() {
    Impl::Finder finder;
    finder.Scan();
    finder.FindModels();
    return NamePorts(finder);
}

ListedPort FindPort(const std::string& name) {
    const auto hasName = [&name](const ListedPort& port) {
        return strata::EqualIgnoringAsciiCase(port.GetName(), name);
    };
    ListedPort lines;
    if (hasName(lines)) {
        return lines;
    }
    const std::vector<ListedPort> ports = ListPorts();
    const auto found = std::find_if(ports.begin(), ports.end(), hasName);
    if (found == ports.end()) {
        throw PortNotFoundException();
    }
    return *found;
}

}  // namespace ExternalControl
