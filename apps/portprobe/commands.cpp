#include "apps/portprobe/commands.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/portprobe/standard_output.h"
#include "lib/hardware/external_control.h"
#include "lib/platform/posix_helpers.h"
#include "lib/platform/string_operations.h"

namespace {

using ExternalControl::Port;

constexpr unsigned MASK_PINS = 32;
constexpr unsigned VALUE_BITS = std::numeric_limits<unsigned>::digits;

using Row = std::array<std::string, 6>;
const Row HEADER = {"NAME", "PINS", "VERSION", "PROPERTIES", "NODE", "LOCATION"};
constexpr const char* NO_TEXT = "-";
constexpr std::size_t COLUMN_GAP = 2;

std::shared_ptr<Port> Open(const KnownPort& knownPort) {
    return ExternalControl::OpenPort(knownPort.name, [](unsigned, unsigned, unsigned) {}, {});
}

/// Whether a port could not be opened because what it stands for is not there: that is no trouble.
bool IsAbsence(const std::exception& failure) {
    if (const auto* error = dynamic_cast<const ErrnoException*>(&failure)) {
        return error->GetErrno() == ENOENT;
    }
    return std::strcmp(failure.what(), "External control port not found") == 0;
}

Row Describe(const KnownPort& knownPort) {
    const std::shared_ptr<Port> port = Open(knownPort);
    Row row = {knownPort.name,     std::to_string(port->GetPinCount()),
               port->GetVersion(), port->GetProperties(),
               knownPort.node,     knownPort.location};
    std::replace(row.begin(), row.end(), std::string(), std::string(NO_TEXT));
    return row;
}

void PrintTable(const std::vector<Row>& rows) {
    std::array<std::size_t, HEADER.size()> widths{};
    for (const Row& row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], row[column].size());
        }
    }
    for (const Row& row : rows) {
        std::string line;
        for (std::size_t column = 0; column < row.size() - 1; ++column) {
            line += row[column] + std::string(widths[column] - row[column].size() + COLUMN_GAP, ' ');
        }
        std::puts((line + row.back()).c_str());
    }
}

void CheckPin(const KnownPort& knownPort, Port& port, unsigned pin) {
    const unsigned count = port.GetPinCount();
    if (pin >= count) {
        throw UsageError(
            strprintf("PIN %u: %s has %u pins, numbered from 0", pin, knownPort.name.c_str(), count));
    }
}

void CheckValue(const KnownPort& knownPort, unsigned value) {
    const unsigned max = std::numeric_limits<unsigned>::max() >> (VALUE_BITS - knownPort.bits);
    if (value > max) {
        throw UsageError(strprintf("VALUE %u: %s takes 0 to %u", value, knownPort.name.c_str(), max));
    }
}

void MakeOutput(Port& port, unsigned pin) {
    if (!port.IsOutput(pin)) {
        port.ConfigureOutput(pin);
    }
}

}  // namespace

bool List() {
    bool hasTrouble = false;
    const auto reportTrouble = [&hasTrouble](const char* subject, const std::exception& failure) {
        std::fprintf(stderr, "portprobe: %s: %s\n", subject, failure.what());
        hasTrouble = true;
    };

    std::vector<KnownPort> ports = GetPlayerPorts();
    try {
        const std::vector<KnownPort> boardPorts = FindBoardPorts();
        ports.insert(ports.end(), boardPorts.begin(), boardPorts.end());
    } catch (const ErrnoException& failure) {
        reportTrouble("boards", failure);
    }
    std::vector<Row> rows = {HEADER};
    for (const KnownPort& knownPort : ports) {
        try {
            rows.push_back(Describe(knownPort));
        } catch (const std::exception& failure) {
            if (!IsAbsence(failure)) {
                reportTrouble(knownPort.name.c_str(), failure);
            }
        }
    }
    if (rows.size() == 1) {
        std::fputs("portprobe: list: no ports\n", stderr);
        return false;
    }
    PrintTable(rows);
    FlushStandardOutput();
    return !hasTrouble;
}

void Get(const KnownPort& knownPort) {
    const std::shared_ptr<Port> port = Open(knownPort);
    const unsigned count = port->GetPinCount();
    std::string text;
    for (unsigned pin = 0; pin < count; ++pin) {
        text += strprintf("pin %u", pin);
        // A pin can be both, on some ports with a line of its own for each.
        if (port->IsInput(pin)) {
            text += strprintf(" input level %u", port->GetInput(pin) ? 1U : 0U);
        }
        if (port->IsOutput(pin)) {
            // Not every port can tell a single output.
            text += pin < MASK_PINS ? strprintf(" output level %u", port->ReadAllOutputs() >> pin & 1)
                                    : " output level unknown";
        }
        text += '\n';
    }
    std::fputs(text.c_str(), stdout);
    FlushStandardOutput();
}

void Set(const KnownPort& knownPort, const Request& request) {
    for (const PinValue& output : request.values) {
        CheckValue(knownPort, output.value);
    }
    const std::shared_ptr<Port> port = Open(knownPort);
    for (const PinValue& output : request.values) {
        CheckPin(knownPort, *port, output.pin);
    }
    for (const PinValue& output : request.values) {
        MakeOutput(*port, output.pin);
        port->SetOutput(output.pin, output.value);
    }
}

void Pulse(const KnownPort& knownPort, const Request& request, const StopSignals& stopSignals) {
    const std::shared_ptr<Port> port = Open(knownPort);
    for (const PinValue& pulse : request.values) {
        CheckPin(knownPort, *port, pulse.pin);
    }
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
