#include "lib/player/alternate_pin_mux.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <exception>
#include <stdexcept>
#include <vector>

#include "lib/platform/errno_exception.h"
#include "lib/platform/message.h"
#include "lib/platform/string_operations.h"
#include "lib/platform/unique_fd.h"

namespace {

const std::string MULTIPLEXER_NODE = "/vantora,player/pin-multiplexer";
const std::string PIN_PREFIX = "pin@";

/// What the driver takes in one write, in the byte order of the machine.
struct SwitchCommand {
    std::uint32_t pin;
    std::uint32_t selector;
};
static_assert(sizeof(SwitchCommand) == 8);

/// Reads the pin's number from the name of its node: hexadecimal, as unit addresses are.
unsigned ParsePin(const std::string& name) {
    unsigned pin = 0;
    std::from_chars(name.data() + PIN_PREFIX.size(), name.data() + name.size(), pin, 16);
    // One spelling for one pin, so that no two nodes describe the same.
    if (strprintf("%s%x", PIN_PREFIX.c_str(), pin) != name) {
        throw std::runtime_error(MULTIPLEXER_NODE + "/" + name + ": not a pin number");
    }
    return pin;
}

/// Whether a device node that cannot be opened has no device behind it.
bool MeansMissing(int openError) {
    return openError == ENOENT || openError == ENXIO || openError == ENODEV;
}

void WriteCommand(int device, const SwitchCommand& command) {
    // One write, never a second one for the rest: the driver takes whole commands only.
    const ssize_t written = write(device, &command, sizeof command);
    if (written < 0) {
        throw ErrnoException(errno);
    }
    if (static_cast<std::size_t>(written) != sizeof command) {
        throw std::runtime_error("the command was written in part");
    }
}

}  // namespace

AlternatePinMux::AlternatePinMux(const DeviceTree& deviceTree)
    : m_device(deviceTree.ReadOrReport(&DeviceTree::ReadText, MULTIPLEXER_NODE + "/device").value_or("")) {
    const auto children = deviceTree.ReadOrReport(&DeviceTree::ReadChildren, MULTIPLEXER_NODE);
    for (const std::string& child : children.value_or(std::vector<std::string>())) {
        if (!child.starts_with(PIN_PREFIX)) {
            continue;
        }
        const std::string node = strprintf("%s/%s", MULTIPLEXER_NODE.c_str(), child.c_str());
        try {
            m_pins.emplace(ParsePin(child), ReadSelectors(deviceTree, node));
        } catch (const std::exception& failure) {
            PLATFORM_MESSAGE("Device tree: %s\n", failure.what());
        }
    }
}

bool AlternatePinMux::SetPinFunction(unsigned pin, const std::string& function) {
    if (m_device.empty()) {
        ReportMissing("the device tree describes none");
        return false;
    }
    const std::uint32_t* const selector = FindSelector(pin, function);
    if (selector == nullptr) {
        return false;
    }
    const strata::UniqueFd device(open(m_device.c_str(), O_WRONLY | O_CLOEXEC));
    const int openError = device.IsOpen() ? 0 : errno;
    if (MeansMissing(openError)) {
        ReportMissing(ErrnoException(openError, m_device).what());
        return false;
    }
    try {
        if (openError != 0) {
            throw ErrnoException(openError);
        }
        WriteCommand(device.Get(), {pin, *selector});
        return true;
    } catch (const std::exception& failure) {
        PLATFORM_MESSAGE("Pin %u cannot be switched to '%s': %s: %s\n", pin, function.c_str(),
                         m_device.c_str(), failure.what());
        return false;
    }
}

AlternatePinMux::Selectors AlternatePinMux::ReadSelectors(const DeviceTree& deviceTree,
                                                          const std::string& node) {
    const auto functions = deviceTree.ReadTexts(node + "/functions").value_or(std::vector<std::string>());
    const auto selectors = deviceTree.ReadCells(node + "/selectors").value_or(std::vector<std::uint32_t>());
    if (functions.size() != selectors.size()) {
        throw std::runtime_error(node + ": not one selector for each function");
    }
    Selectors byFunction;
    for (std::size_t i = 0; i < functions.size(); ++i) {
        byFunction.emplace(functions[i], selectors[i]);
    }
    return byFunction;
}

const std::uint32_t* AlternatePinMux::FindSelector(unsigned pin, const std::string& function) const {
    const auto selectors = m_pins.find(pin);
    if (selectors == m_pins.end()) {
        return nullptr;
    }
    const auto selector = selectors->second.find(function);
    return selector == selectors->second.end() ? nullptr : &selector->second;
}

void AlternatePinMux::ReportMissing(const std::string& reason) {
    if (!m_missingReported.test_and_set()) {
        PLATFORM_MESSAGE("No pin multiplexer: %s\n", reason.c_str());
    }
}
