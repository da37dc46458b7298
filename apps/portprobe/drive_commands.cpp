#include "apps/portprobe/drive_commands.h"

#include <limits>
#include <memory>
#include <stdexcept>

#include "apps/portprobe/known_ports.h"
#include "apps/portprobe/pins.h"
#include "lib/hardware/external_control.h"
#include "lib/platform/string_operations.h"

namespace {

using ExternalControl::Port;

constexpr unsigned VALUE_BITS = std::numeric_limits<unsigned>::digits;

void CheckValue(const KnownPort& knownPort, unsigned value) {
    const unsigned max = std::numeric_limits<unsigned>::max() >> (VALUE_BITS - knownPort.GetBits());
    if (value > max) {
        throw UsageError(strprintf("VALUE %u: %s takes 0 to %u", value, knownPort.name.c_str(), max));
    }
}

void CheckPins(const KnownPort& knownPort, Port& port, const Request& request) {
    const Pins pins = ReadPins(knownPort, port);
    for (const PinValue& value : request.values) {
        GetPin(knownPort, pins, value.pin);
    }
}

void MakeOutput(Port& port, unsigned pin) {
    if (!port.IsOutput(pin)) {
        port.ConfigureOutput(pin);
    }
}

}  // namespace

void Set(const Request& request) {
    KnownPorts ports;
    const KnownPort knownPort = ports.Find(request.names[0]);
    for (const PinValue& output : request.values) {
        CheckValue(knownPort, output.value);
    }
    const std::shared_ptr<Port> port = Open(knownPort);
    CheckPins(knownPort, *port, request);
    for (const PinValue& output : request.values) {
        MakeOutput(*port, output.pin);
        port->SetOutput(output.pin, output.value);
    }
}

void Pulse(const Request& request, const StopSignals& stopSignals) {
    KnownPorts ports;
    const KnownPort knownPort = ports.Find(request.names[0]);
    const std::shared_ptr<Port> port = Open(knownPort);
    CheckPins(knownPort, *port, request);
    if (!port->ConfigurePulse(request.periodMicroseconds, request.steps)) {
        throw std::runtime_error("this port cannot pulse");
    }
    for (const PinValue& pulse : request.values) {
        MakeOutput(*port, pulse.pin);
        if (!port->StartPulse(pulse.pin, pulse.value)) {
            throw std::runtime_error(strprintf("pin %u cannot pulse", pulse.pin));
        }
    }
    stopSignals.Wait();
    for (const PinValue& pulse : request.values) {
        port->StopPulse(pulse.pin);
    }
}
