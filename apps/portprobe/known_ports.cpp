#include "apps/portprobe/known_ports.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "lib/hardware/external_control_input_driver.h"
#include "lib/platform/string_operations.h"

using ExternalControl::Port;
using ExternalControl::Impl::AvailablePorts;
using ExternalControl::Impl::PortOnHid;
using ExternalControl::Impl::PortOnLinuxInputDriver;

bool KnownPort::HasInputs() const {
    return !descriptor || (descriptor->capabilities & ExternalControl::Impl::CAPABILITY_INPUT) != 0;
}

KnownPorts::KnownPorts() : m_ports{{"vantora", "/dev/input/vantora-gpio", "", nullptr, nullptr}} {}

void KnownPorts::FindBoards() {
    m_finder.Scan();
    NameBoards();
}

void KnownPorts::FindBoardsAndModels() {
    m_finder.Scan();
    m_finder.FindModels();
    NameBoards();
}

void KnownPorts::NameBoards() {
    const AvailablePorts available(m_finder.GetDescriptors());
    for (const auto& [name, descriptor] : available.GetPorts()) {
        m_ports.push_back({name, descriptor->nodeName, descriptor->location, descriptor,
                           &m_finder.GetDevice(descriptor->hid_device)});
    }
    m_hasBoards = true;
}

const KnownPort* KnownPorts::FindKnown(const std::string& name) const {
    const auto found = std::find_if(m_ports.begin(), m_ports.end(), [&](const KnownPort& port) {
        return strata::EqualIgnoringAsciiCase(port.name, name);
    });
    return found == m_ports.end() ? nullptr : &*found;
}

KnownPort KnownPorts::Find(const std::string& name) {
    const KnownPort* port = FindKnown(name);
    if (port == nullptr && !m_hasBoards) {
        FindBoards();
        port = FindKnown(name);
    }
    if (port == nullptr) {
        throw std::runtime_error("no such port");
    }
    return *port;
}

std::shared_ptr<Port> Open(const KnownPort& knownPort, ExternalControl::InputCallback inputCallback,
                           ExternalControl::LostCallback lostCallback) {
    if (!knownPort.descriptor) {
        return PortOnLinuxInputDriver::Open(std::move(inputCallback));
    }
    return PortOnHid::Open(*knownPort.descriptor, std::move(inputCallback), std::move(lostCallback));
}

std::shared_ptr<Port> Open(const KnownPort& knownPort) {
    return Open(knownPort, [](unsigned, unsigned, unsigned) {}, {});
}
