#include "apps/portprobe/pins.h"

#include <algorithm>
#include <memory>

#include "apps/portprobe/request.h"
#include "lib/hardware/external_control_input_driver.h"
#include "lib/hardware/hid_snapshot.h"
#include "lib/platform/string_operations.h"

namespace {

using ExternalControl::Port;
using ExternalControl::Impl::HidSnapshot;
using ExternalControl::Impl::PortOnHid;
using ExternalControl::Impl::PortOnLinuxInputDriver;

std::optional<std::uint32_t> LevelIf(bool isThere, std::uint32_t mask, unsigned number) {
    return isThere ? std::optional(mask >> number & 1) : std::nullopt;
}

Pins ReadLines(PortOnLinuxInputDriver& lines) {
    const std::uint32_t switchable = lines.GetSwitchablePins();
    const std::uint32_t offered = lines.GetOfferedInputs() | lines.GetOfferedOutputs() | switchable;
    const PortOnLinuxInputDriver::Snapshot now = lines.ReadSnapshot();
    const std::uint32_t inputs = (lines.GetOfferedInputs() & ~switchable) | (switchable & ~now.directions);
    const std::uint32_t outputs = (lines.GetOfferedOutputs() & ~switchable) | (switchable & now.directions);

    Pins pins(lines.GetPinCount());
    for (unsigned number = 0; number < pins.size(); ++number) {
        Pin& pin = pins[number];
        if ((offered >> number & 1) != 0) {
            pin.kind = (switchable >> number & 1) != 0 ? PinKind::SWITCHABLE : PinKind::FIXED;
        }
        pin.input = LevelIf((inputs >> number & 1) != 0, now.inputs, number);
        pin.output = LevelIf((outputs >> number & 1) != 0, now.outputs, number);
    }
    return pins;
}

Pins ReadBoard(const KnownPort& knownPort) {
    const PortOnHid::Descriptor& descriptor = *knownPort.descriptor;
    const HidSnapshot now = ReadSnapshot(*knownPort.device, descriptor);
    const bool isInverted = descriptor.IsActiveLow() && !knownPort.HasValues();

    Pins pins(std::max({now.inputs.size(), now.outputs.size(), now.directions.size()}));
    for (unsigned number = 0; number < pins.size(); ++number) {
        Pin& pin = pins[number];
        const bool isSwitchable = !now.directions.empty();
        const bool isSwitchedToOutput = isSwitchable && now.directions[number] != 0;
        pin.kind = isSwitchable ? PinKind::SWITCHABLE : PinKind::FIXED;
        if (!now.inputs.empty() && !isSwitchedToOutput) {
            const std::uint32_t value = now.inputs[number];
            pin.input = isInverted ? std::uint32_t{value == 0} : value;
        }
        if (!now.outputs.empty() && (!isSwitchable || isSwitchedToOutput)) {
            pin.output = now.outputs[number];
        }
    }
    return pins;
}

}  // namespace

Pins FetchPins(const KnownPort& knownPort) {
    if (!knownPort.descriptor) {
        const std::shared_ptr<Port> port = Open(knownPort);
        return ReadPins(knownPort, *port);
    }
    FetchInputs(*knownPort.device, *knownPort.descriptor);
    return ReadBoard(knownPort);
}

Pins ReadPins(const KnownPort& knownPort, Port& port) {
    if (auto* const lines = dynamic_cast<PortOnLinuxInputDriver*>(&port)) {
        return ReadLines(*lines);
    }
    return ReadBoard(knownPort);
}

std::string FormatPin(const KnownPort& knownPort, unsigned number, const Pin& pin) {
    std::string text = strprintf("%s %u", knownPort.HasValues() ? "value" : "pin", number);
    const auto append = [&](const char* direction, const std::optional<std::uint32_t>& value) {
        if (value) {
            text += strprintf(knownPort.HasValues() ? " %s 0x%08X" : " %s level %u", direction, *value);
        }
    };
    append("input", pin.input);
    append("output", pin.output);
    switch (pin.kind) {
        case PinKind::ABSENT:
            return text + " absent";
        case PinKind::FIXED:
            return text + " fixed";
        case PinKind::SWITCHABLE:
            return text + " switchable";
    }
    return text;
}

void CheckNumber(const KnownPort& knownPort, const Pins& pins, unsigned number) {
    if (number >= pins.size()) {
        throw UsageError(strprintf("PIN %u: %s has %zu pins, numbered from 0", number, knownPort.name.c_str(),
                                   pins.size()));
    }
}

const Pin& GetPin(const KnownPort& knownPort, const Pins& pins, unsigned number) {
    CheckNumber(knownPort, pins, number);
    if (pins[number].kind == PinKind::ABSENT) {
        throw UsageError(strprintf("PIN %u: %s does not have this one", number, knownPort.name.c_str()));
    }
    return pins[number];
}
