#include "apps/portprobe/drive_commands.h"

#include <signal.h>
#include <sys/eventfd.h>

#include <cerrno>
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
#include "lib/platform/errno_exception.h"
#include "lib/platform/string_operations.h"
#include "lib/platform/unique_fd.h"

namespace {

using ExternalControl::PinNotAvailableException;
using ExternalControl::PlayerLines;
using ExternalControl::Port;

constexpr unsigned VALUE_BITS = std::numeric_limits<unsigned>::digits;
constexpr unsigned PARAMETER_MAX = std::numeric_limits<std::uint8_t>::max();

/// A port that is open, with the pins as they were found.
class OpenedPort {
public:
    explicit OpenedPort(const std::string& name)
        : m_known(FindKnownPort(name)), m_port(Open(m_known)), m_pins(ReadPins(m_known, *m_port)) {}

    Port* operator->() const { return m_port.get(); }

    /// @return null for the port of a board
    PlayerLines* GetLines() const { return dynamic_cast<PlayerLines*>(m_port.get()); }

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
                throw UsageError(
                    strprintf("VALUE %u: %s takes 0 to %u", value, m_known.GetName().c_str(), max));
            }
        }
    }

private:
    const ListedPort m_known;
    const std::shared_ptr<Port> m_port;
    const Pins m_pins;
};

/// @throws std::runtime_error when one cannot be an output
void CheckOutputs(const OpenedPort& port, const std::vector<PinValue>& outputs) {
    for (const auto& [number, value] : outputs) {
        const Pin& pin = port.GetPin(number);
        if (pin.kind == PinKind::FIXED && !pin.output) {
            port->ConfigureOutput(number);  // throws when the pin cannot be one
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

/// Whether a pulse was ended by a failure, as something to wait for.
class PulseFailure {
public:
    PulseFailure() : m_event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (!m_event.IsOpen()) {
            throw ErrnoException(errno, "eventfd");
        }
    }

    /// Any thread.
    void Happen() const {
        // Fails only when the count is full, and then it is readable already.
        static_cast<void>(eventfd_write(m_event.Get(), 1));
    }

    /// @return a descriptor that is readable once it has happened, until HasHappened
    int GetFd() const { return m_event.Get(); }

    bool HasHappened() const {
        eventfd_t count;
        return eventfd_read(m_event.Get(), &count) == 0;
    }

private:
    const strata::UniqueFd m_event;
};

/// @param failure  outlives the port
void StartPulses(const OpenedPort& port, const Request& request, const PulseFailure& failure) {
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
    port.GetLines()->SetPulseFailureCallback([&failure](unsigned) { failure.Happen(); });
    Drive(port, newOutputs);
    for (const PinValue& pulse : request.values) {
        if (!port->StartPulse(pulse.pin, pulse.value)) {
            throw std::runtime_error(strprintf("pin %u cannot pulse", pulse.pin));
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
            port->ConfigureInput(number);  // throws when the pin cannot be one
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
    PlayerLines* const lines = port.GetLines();
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
    // A message that nobody reads must not end the process while a line is high.
    if (signal(SIGPIPE, SIG_IGN) == SIG_ERR) {
        throw ErrnoException(errno, "signal");
    }
    PulseFailure failure;
    const OpenedPort port = stopSignals.DoInterruptibly([&] { return OpenedPort(request.names[0]); });
    StartPulses(port, request, failure);
    stopSignals.WaitForThemOr(failure.GetFd());
    for (const PinValue& pulse : request.values) {
        port->StopPulse(pulse.pin);
    }
    if (failure.HasHappened()) {
        throw std::runtime_error("the pulse has ended");
    }
}
