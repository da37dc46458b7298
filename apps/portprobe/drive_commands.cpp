#include "apps/portprobe/drive_commands.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/portprobe/known_ports.h"
#include "apps/portprobe/pins.h"
#include "lib/hardware/external_control.h"
#include "lib/hardware/external_control_input_driver.h"
#include "lib/platform/string_operations.h"

namespace {

using ExternalControl::PinNotAvailableException;
using ExternalControl::Port;
using ExternalControl::Impl::PortOnLinuxInputDriver;

constexpr unsigned VALUE_BITS = std::numeric_limits<unsigned>::digits;
constexpr unsigned PARAMETER_MAX = std::numeric_limits<std::uint8_t>::max();

/// A port that is open, with the pins as they were found.
class OpenedPort {
public:
    explicit OpenedPort(const std::string& name)
        : m_known(m_ports.Find(name)), m_port(Open(m_known)), m_pins(ReadPins(m_known, *m_port)) {}

    Port* operator->() const { return m_port.get(); }

    /// @return null for the port of a board
    PortOnLinuxInputDriver* GetLines() const { return dynamic_cast<PortOnLinuxInputDriver*>(m_port.get()); }

    /// @return the greatest value of a pin
    unsigned GetValueMax() const {
        return std::numeric_limits<unsigned>::max() >> (VALUE_BITS - m_known.GetBits());
    }

    /// @throws UsageError when the pin has no place on the port; it may be there with another function only
    void CheckNumber(unsigned number) const { ::CheckNumber(m_known, m_pins, number); }

    /// @throws UsageError when there is no such pin
    const Pin& GetPin(unsigned number) const { return ::GetPin(m_known, m_pins, number); }

    /// @throws UsageError when the pins are not there or the values exceed max
    void Check(const std::vector<PinValue>& values, unsigned max) const {
        for (const auto& [number, value] : values) {
            GetPin(number);
            if (value > max) {
                throw UsageError(strprintf("VALUE %u: %s takes 0 to %u", value, m_known.name.c_str(), max));
            }
        }
    }

private:
    KnownPorts m_ports;
    const KnownPort m_known;
    const std::shared_ptr<Port> m_port;
    const Pins m_pins;
};

/// @throws std::runtime_error when one cannot be an output
void CheckOutputs(const OpenedPort& port, const std::vector<PinValue>& outputs) {
    for (const auto& [number, value] : outputs) {
        const Pin& pin = port.GetPin(number);
        if (pin.kind == PinKind::FIXED && !pin.output) {
            port->ConfigureOutput(number);  // the port says why not
        }
    }
}

/// Sets outputs, and makes outputs of those that are none yet.
void Drive(const OpenedPort& port, const std::vector<PinValue>& outputs) {
    for (const auto& [number, value] : outputs) {
        port->SetOutput(number, value);
    }
    for (const auto& [number, value] : outputs) {
        if (!port.GetPin(number).output) {
            port->ConfigureOutput(number);
        }
    }
}

}  // namespace

void Set(const Request& request) {
    const OpenedPort port(request.names[0]);
    port.Check(request.values, port.GetValueMax());
    CheckOutputs(port, request.values);
    Drive(port, request.values);
}

void MakeInputs(const Request& request) {
    const OpenedPort port(request.names[0]);
    for (const unsigned number : request.pins) {
        const Pin& pin = port.GetPin(number);
        if (pin.kind == PinKind::FIXED && !pin.input) {
            port->ConfigureInput(number);  // the port says why not
        }
    }
    for (const unsigned number : request.pins) {
        if (!port.GetPin(number).input) {
            port->ConfigureInput(number);
        }
    }
}

void SwitchFunctions(const Request& request) {
    const OpenedPort port(request.names[0]);
    for (const auto& [number, function] : request.functions) {
        port.CheckNumber(number);
    }
    for (const auto& [number, function] : request.functions) {
        if (!port->SetPinFunction(number, function)) {
            throw std::runtime_error(
                strprintf("pin %u cannot be switched to '%s'", number, function.c_str()));
        }
    }
}

void SetParameters(const Request& request) {
    const OpenedPort port(request.names[0]);
    PortOnLinuxInputDriver* const lines = port.GetLines();
    if (lines == nullptr) {
        throw std::runtime_error("the pins of this port have no parameter");
    }
    port.Check(request.values, PARAMETER_MAX);
    for (const auto& [number, value] : request.values) {
        if (port.GetPin(number).kind != PinKind::SWITCHABLE) {
            throw PinNotAvailableException();
        }
    }
    for (const auto& [number, value] : request.values) {
        lines->SetPinParameter(number, static_cast<std::uint8_t>(value));
    }
}

void Pulse(const Request& request, const StopSignals& stopSignals) {
    const OpenedPort port(request.names[0]);
    std::vector<PinValue> newOutputs;
    for (const PinValue& pulse : request.values) {
        if (!port.GetPin(pulse.pin).output) {
            newOutputs.push_back({pulse.pin, 0});
        }
    }
    if (!port->ConfigurePulse(request.periodMicroseconds, request.steps)) {
        throw std::runtime_error("this port cannot pulse");
    }
    CheckOutputs(port, newOutputs);
    Drive(port, newOutputs);
    for (const PinValue& pulse : request.values) {
        if (!port->StartPulse(pulse.pin, pulse.value)) {
            throw std::runtime_error(strprintf("pin %u cannot pulse", pulse.pin));
        }
    }
    stopSignals.Wait();
    for (const PinValue& pulse : request.values) {
        port->StopPulse(pulse.pin);
    }
}
