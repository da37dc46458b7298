#include "apps/portprobe/pins.h"

#include <algorithm>
#include <memory>

#include "apps/portprobe/request.h"
#include "lib/hardware/external_control_input_driver.h"
#include "lib/platform/string_operations.h"

namespace {

using ExternalControl::PlayerLines;
using ExternalControl::Port;
using ExternalControl::PortKind;
using ExternalControl::PortValues;

std::optional<std::uint32_t> LevelIf(bool isThere, std::uint32_t mask, unsigned number) {
    return isThere ? std::optional(mask >> number & 1) : std::nullopt;
}

Pins ReadLines(PlayerLines& lines) {
    const std::uint32_t switchable = lines.GetSwitchablePins();
    const std::uint32_t offered = lines.GetOfferedInputs() | lines.GetOfferedOutputs() | switchable;
    const PlayerLines::Snapshot now = lines.ReadSnapshot();
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

Pins ReadBoard(const ListedPort& knownPort) {
    const PortValues now = knownPort.ReadValues();

    Pins pins(std::max({now.inputs.size(), now.outputs.size(), now.directions.size()}));
    for (unsigned number = 0; number < pins.size(); ++number) {
        Pin& pin = pins[number];
        const bool isSwitchable = !now.directions.empty();
        const bool isSwitchedToOutput = isSwitchable && now.directions[number] != 0;
        pin.kind = isSwitchable ? PinKind::SWITCHABLE : PinKind::FIXED;
        if (!now.inputs.empty() && !isSwitchedToOutput) {
            pin.input = now.inputs[number];
        }
        if (!now.outputs.empty() && (!isSwitchable || isSwitchedToOutput)) {
            pin.output = now.outputs[number];
        }
    }
    return pins;
}

}  // namespace

Pins FetchPins(const ListedPort& knownPort) {
    if (knownPort.GetKind() == PortKind::LINES) {
        const std::shared_ptr<Port> port = Open(knownPort);
        return ReadPins(knownPort, *port);
    }
    knownPort.FetchInputs();
    return ReadBoard(knownPort);
}

Pins ReadPins(const ListedPort& knownPort, Port& port) {
    if (auto* const lines = dynamic_cast<PlayerLines*>(&port)) {
        return ReadLines(*lines);
    }
    return ReadBoard(knownPort);
}

std::string FormatPin(const ListedPort& knownPort, unsigned number, const Pin& pin) {
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

void CheckNumber(const ListedPort& knownPort, const Pins& pins, unsigned number) {
    if (number >= pins.size()) {
        throw UsageError(strprintf("PIN %u: %s has %zu pins, numbered from 0", number,
                                   knownPort.GetName().c_str(), pins.size()));
    }
}

const Pin& GetPin(const ListedPort& knownPort, const Pins& pins, unsigned number) {
    CheckNumber(knownPort, pins, number);
    if (pins[number].kind == PinKind::ABSENT) {
        throw UsageError(strprintf("PIN %u: %s does not have this one", number, knownPort.GetName().c_str()));
    }
    return pins[number];
}
