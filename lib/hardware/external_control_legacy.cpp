#include "lib/hardware/external_control_legacy.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace ExternalControl::Impl {
namespace {

constexpr const char* SUB_PORT_NAMES[LegacyPort::SUB_PORT_COUNT] = {"Vantora", "Expander-GPIO",
                                                                    "Expander-DIP"};

/// Consecutive pins here, and those that they stand for.
struct PinRange {
    unsigned firstPin;
    unsigned count;
    LegacyPort::SubPort subPort;
    unsigned firstSubPortPin;
};

// Pins 10 and 17 to 20 are in both tables: they are read on one side and written on the other.
constexpr PinRange INPUTS[] = {
    {0, 10, LegacyPort::EXPANDER, 8},
    {10, 2, LegacyPort::EXPANDER, 0},
    {12, 1, LegacyPort::MAIN, 12},
    {13, 8, LegacyPort::SWITCHES, 0},
};
constexpr PinRange OUTPUTS[] = {
    {10, 1, LegacyPort::MAIN, 10},
    {17, 6, LegacyPort::EXPANDER, 2},
};

struct Configuration {
    LegacyPort::SubPort subPort;
    void (Port::*configure)(unsigned pin);
    unsigned firstPin;
    unsigned count;
};

/// What is done to the sub-ports, in this order.
constexpr Configuration CONFIGURATIONS[] = {
    {LegacyPort::MAIN, &Port::ConfigureInput, 12, 1},
    {LegacyPort::MAIN, &Port::ConfigureOutput, 10, 1},
    {LegacyPort::EXPANDER, &Port::ConfigureInput, 0, 2},
    {LegacyPort::EXPANDER, &Port::ConfigureInput, 8, 10},
    {LegacyPort::EXPANDER, &Port::ConfigureOutput, 2, 6},
    {LegacyPort::SWITCHES, &Port::ConfigureInput, 0, 8},
};

/// The range that holds a pin of this port, or null.
template <std::size_t SIZE>
const PinRange* FindPin(const PinRange (&ranges)[SIZE], unsigned pin) {
    const auto* range = std::find_if(std::begin(ranges), std::end(ranges), [pin](const PinRange& candidate) {
        return pin >= candidate.firstPin && pin - candidate.firstPin < candidate.count;
    });
    return range == std::end(ranges) ? nullptr : range;
}

/// Consecutive bits of a mask, moved to another place.
constexpr std::uint32_t MoveBits(std::uint32_t mask, unsigned from, unsigned count, unsigned to) {
    return (mask >> from & ((std::uint32_t{1} << count) - 1)) << to;
}

}  // namespace

LegacyPort::LegacyPort(InputCallback inputCallback, const Opener& open)
    : m_inputCallback(std::move(inputCallback)) {
    for (const SubPort subPort : {MAIN, EXPANDER, SWITCHES}) {
        m_subPorts[subPort] = open(SUB_PORT_NAMES[subPort],
                                   [this, subPort](unsigned pin, unsigned value, unsigned width) {
                                       OnInput(subPort, pin, value, width);
                                   },
                                   {});
    }
    for (const Configuration& configuration : CONFIGURATIONS) {
        for (unsigned i = 0; i < configuration.count; ++i) {
            ((*m_subPorts[configuration.subPort]).*configuration.configure)(configuration.firstPin + i);
        }
    }
}

void LegacyPort::ConfigureInput(unsigned pin) {
    if (!IsInput(pin)) {
        throw std::runtime_error("Pin cannot be configured as input");
    }
}

bool LegacyPort::IsInput(unsigned pin) {
    return FindPin(INPUTS, pin) != nullptr;
}

bool LegacyPort::GetInput(unsigned pin) {
    const PinRange* range = FindPin(INPUTS, pin);
    return range != nullptr &&
           m_subPorts[range->subPort]->GetInput(pin - range->firstPin + range->firstSubPortPin);
}

unsigned LegacyPort::ReadAllInputs() {
    const std::uint32_t main = m_subPorts[MAIN]->ReadAllInputs();
    const std::uint32_t switches = m_subPorts[SWITCHES]->ReadAllInputs();
    const std::uint32_t expander = m_subPorts[EXPANDER]->ReadAllInputs();
    return MoveBits(main, 12, 1, 12) | switches << 13 | MoveBits(expander, 0, 2, 10) |
           MoveBits(expander, 8, 6, 0);
}

void LegacyPort::ConfigureOutput(unsigned pin) {
    if (!IsOutput(pin)) {
        // The text differs from that of the other ports, deliberately: it is the earlier player's.
        throw std::runtime_error("Pin cannot be configured as an output");
    }
}

bool LegacyPort::IsOutput(unsigned pin) {
    return FindPin(OUTPUTS, pin) != nullptr;
}

bool LegacyPort::GetOutput(unsigned pin) {
    const PinRange* range = FindPin(OUTPUTS, pin);
    return range != nullptr &&
           m_subPorts[range->subPort]->GetOutput(pin - range->firstPin + range->firstSubPortPin);
}

unsigned LegacyPort::ReadAllOutputs() {
    return MoveBits(m_subPorts[MAIN]->ReadAllOutputs(), 10, 1, 10) |
           MoveBits(m_subPorts[EXPANDER]->ReadAllOutputs(), 2, 6, 17);
}

void LegacyPort::SetAllLevels(unsigned mask) {
    m_subPorts[MAIN]->SetAllLevels(MoveBits(mask, 10, 1, 10));
    m_subPorts[EXPANDER]->SetAllLevels(MoveBits(mask, 17, 6, 2));
}

void LegacyPort::SetOutputs(const unsigned* values, unsigned count) {
    m_subPorts[MAIN]->SetOutputs(values, count);
    m_subPorts[EXPANDER]->SetOutputs(values, count);
}

void LegacyPort::SetOutput(unsigned pin, unsigned value) {
    if (const PinRange* range = FindPin(OUTPUTS, pin)) {
        m_subPorts[range->subPort]->SetOutput(pin - range->firstPin + range->firstSubPortPin, value);
    }
}

/// Runs on the poll thread.
void LegacyPort::OnInput(SubPort subPort, unsigned pin, unsigned value, unsigned width) const {
    for (const PinRange& range : INPUTS) {
        if (range.subPort == subPort && pin >= range.firstSubPortPin &&
            pin - range.firstSubPortPin < range.count) {
            m_inputCallback(pin - range.firstSubPortPin + range.firstPin, value, width);
        }
    }
}

}  // namespace ExternalControl::Impl
