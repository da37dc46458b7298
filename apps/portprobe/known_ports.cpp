#include "apps/portprobe/known_ports.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "lib/hardware/external_control_hid_finder.h"
#include "lib/platform/string_operations.h"

namespace {

using ExternalControl::Impl::AvailablePorts;
using ExternalControl::Impl::Finder;

const KnownPort* Find(const std::vector<KnownPort>& ports, const std::string& name) {
    const auto found = std::find_if(ports.begin(), ports.end(), [&](const KnownPort& port) {
        return strata::EqualIgnoringAsciiCase(port.name, name);
    });
    return found == ports.end() ? nullptr : &*found;
}

}  // namespace

const std::vector<KnownPort>& GetPlayerPorts() {
    static const std::vector<KnownPort> ports = {
        {"vantora", "/dev/input/vantora-gpio", "", 1, true},
        // Made of other ports.
        {"VX1000-compatible", "", "", 1, true},
    };
    return ports;
}

std::vector<KnownPort> FindBoardPorts() {
    Finder finder;
    finder.Scan();
    const AvailablePorts available(finder.GetDescriptors());
    std::vector<KnownPort> ports;
    for (const auto& [name, descriptor] : available.GetPorts()) {
        const bool hasInputs = (descriptor->capabilities & ExternalControl::Impl::CAPABILITY_INPUT) != 0;
        ports.push_back(
            {name, descriptor->nodeName, descriptor->location, descriptor->bitsPerField, hasInputs});
    }
    return ports;
}

KnownPort FindPort(const std::string& name) {
    if (const KnownPort* port = Find(GetPlayerPorts(), name)) {
        return *port;
    }
    const std::vector<KnownPort> boardPorts = FindBoardPorts();
    if (const KnownPort* port = Find(boardPorts, name)) {
        return *port;
    }
    throw std::runtime_error("no such port");
}
