// Discovery, identity and use of HID boards, with a kernel that answers whatever the input says.
// Input: a mask of the hiddev nodes that there are (2 bytes), then the answers in the order in which they are
// asked for, then which port to open, then commands with the answers to each. The seeds show it.

#include <linux/hiddev.h>
#include <poll.h>
#include <sys/ioctl.h>

#include "lib/hardware/external_control_hid.h"
#include "lib/hardware/external_control_hid_finder.h"
#include "lib/platform/errno_exception.h"
#include "lib/player/usb_bus_order.h"
#include "tests/fuzz/modelled_device.h"

using namespace ExternalControl::Impl;

namespace {

FuzzInput* boards = nullptr;  // where everything about the boards comes from

class ModelledHiddev final : public ModelledDevice {
public:
    explicit ModelledHiddev(FuzzInput& input)
        : ModelledDevice(input, "/dev/usb/hiddev"), m_nodes(input.Take<std::uint16_t>()) {}

    int Open(const std::string& node) override {
        if ((m_nodes >> std::stoi(node) & 1) == 0) {
            errno = ENOENT;
            return -1;
        }
        return ModelledDevice::Open(node);
    }

    int Ioctl(unsigned long request, void* argument) override {
        auto* const usage = static_cast<hiddev_usage_ref*>(argument);
        auto* const usages = static_cast<hiddev_usage_ref_multi*>(argument);
        switch (request) {
            case HIDIOCGUSAGES:
                REQUIRE(usages->num_values <= HID_MAX_MULTI_USAGES);
                break;
            case HIDIOCSUSAGES:
                REQUIRE(usages->num_values <= HID_MAX_MULTI_USAGES);
                std::for_each_n(usages->values, usages->num_values, [this](int v) { CheckOutput(v); });
                break;
            case HIDIOCSUSAGE:
                CheckOutput(usage->value);
                break;
        }
        return Fails() ? -1 : Answer(request, argument);
    }

    std::uint32_t m_maximum = 0xFFFFFFFF;  ///< no output may be set to more

private:
    void CheckOutput(int value) const { REQUIRE(static_cast<std::uint32_t>(value) <= m_maximum); }

    int Answer(unsigned long request, void* argument) {
        auto* const device = static_cast<hiddev_devinfo*>(argument);
        auto* const report = static_cast<hiddev_report_info*>(argument);
        auto* const field = static_cast<hiddev_field_info*>(argument);
        auto* const usage = static_cast<hiddev_usage_ref*>(argument);
        auto* const usages = static_cast<hiddev_usage_ref_multi*>(argument);
        switch (request) {
            case HIDIOCGDEVINFO:
                device->vendor = m_input.Take<std::int16_t>();
                device->version = m_input.Take<std::int16_t>();
                device->num_applications = m_input.Take<std::uint8_t>();
                break;
            case HIDIOCAPPLICATION:
                return m_input.Take<std::int32_t>();
            case HIDIOCGREPORTINFO:
                report->report_id = m_input.Take<std::uint8_t>();
                report->num_fields = m_input.Take<std::uint8_t>();
                break;
            case HIDIOCGFIELDINFO:
                field->field_index = 0xFFFF;  // a number that the caller must not use
                field->logical_minimum = m_input.Take<std::int32_t>();
                field->logical_maximum = m_input.Take<std::int32_t>();
                field->maxusage = m_input.Take<std::uint16_t>();
                break;
            case HIDIOCGUCODE:
                usage->usage_code = m_input.Take<std::uint32_t>();
                break;
            case HIDIOCGUSAGE:
                usage->value = m_input.Take<std::int32_t>();
                break;
            case HIDIOCGUSAGES: {
                // The first values; the others are zeros.
                const std::uint32_t given = m_input.Take<std::uint8_t>();
                std::memset(usages->values, 0, usages->num_values * sizeof usages->values[0]);
                m_input.TakeBytes(usages->values,
                                  std::min(given, usages->num_values) * sizeof usages->values[0]);
                break;
            }
        }
        return 0;
    }

    const std::uint16_t m_nodes;
};

using Command = void (*)(PortOnHid& port, unsigned pin, unsigned value);

// Command 0 is to receive.
constexpr Command COMMANDS[] = {
    [](PortOnHid& port, unsigned pin, unsigned) { port.ConfigureInput(pin); },
    [](PortOnHid& port, unsigned pin, unsigned) { port.ConfigureOutput(pin); },
    [](PortOnHid& port, unsigned pin, unsigned) { port.IsInput(pin); },
    [](PortOnHid& port, unsigned pin, unsigned) { port.IsOutput(pin); },
    [](PortOnHid& port, unsigned pin, unsigned) { port.GetInput(pin); },
    [](PortOnHid& port, unsigned, unsigned) { port.ReadAllInputs(); },
    [](PortOnHid& port, unsigned, unsigned) { port.ReadAllOutputs(); },
    [](PortOnHid& port, unsigned, unsigned value) { port.SetAllLevels(value); },
    [](PortOnHid& port, unsigned pin, unsigned value) { port.SetOutput(pin, value); },
    [](PortOnHid& port, unsigned pin, unsigned value) {
        const unsigned count = pin * 8;
        port.SetOutputs(std::vector<unsigned>(count, value).data(), count);
    },
    [](PortOnHid& port, unsigned pin, unsigned) {
        port.OnDeviceAppeared("/hiddev" + std::to_string(pin % 16));
    },
};

void UsePort(const Descriptor& descriptor, ModelledHiddev& hiddev, FuzzInput& input) {
    const auto check = [&](unsigned pin, unsigned value, unsigned width) {
        REQUIRE(pin < descriptor.count && (width == 32 || (width == 1 && value <= 1 && pin < 32)));
    };
    hiddev.m_maximum = 0xFFFFFFFF >> (32 - descriptor.bitsPerField);
    PortOnHid port(descriptor, check, nullptr);
    port.SetValueCallback(check);
    int lostFd = -1;
    while (!input.IsEmpty()) {
        const unsigned command = input.Take<std::uint8_t>() % (std::size(COMMANDS) + 1);
        if (command == 0) {
            // As the poll thread does: a lost port gets no activity until it has another descriptor.
            if (port.GetFd() != lostFd) {
                port.OnActivity(POLLIN);
                lostFd = hiddev.m_readFailed ? port.GetFd() : -1;
            }
            continue;
        }
        const unsigned pin = input.Take<std::uint8_t>();
        try {
            COMMANDS[command - 1](port, pin, input.Take<std::uint32_t>());
        } catch (const ErrnoException&) {
            // A device that fails.
        } catch (const std::runtime_error& refusal) {
            const std::string why = refusal.what();
            REQUIRE(why == "Pin cannot be configured as input" ||
                    why == "Pin cannot be configured as output");
        }
    }
}

}  // namespace

/// In the place of the one that asks the system: these boards are in no sysfs.
std::optional<UsbBusOrder::Place> UsbBusOrder::Find(const std::string& node) {
    const unsigned port = boards->Take<std::uint8_t>();
    if (port == 0) {
        return std::nullopt;
    }
    return Place{{port / 16, port % 16}, std::to_string(port), node};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static PollThread pollThread;
    // The target does what that thread would do.
    const auto blocked = pollThread.BlockCallbacks();
    FuzzInput input(data, size);
    boards = &input;
    ModelledHiddev hiddev(input);
    try {
        Finder finder;
        finder.Scan();
        finder.AskForModels();
        const AvailablePorts available(finder.GetDescriptors());
        std::vector<DescriptorPtr> found;
        for (const auto& [name, descriptor] : available.GetPorts()) {
            REQUIRE(available.Find(strata::ToLowerAscii(name)) == descriptor);
            REQUIRE(descriptor->directionField == Descriptor::NO_FIELD ||
                    descriptor->capabilities == CAPABILITY_BOTH);
            REQUIRE(descriptor->inputField == Descriptor::NO_FIELD ||
                    (descriptor->capabilities & CAPABILITY_INPUT) != 0);
            found.push_back(descriptor);
        }
        if (!found.empty()) {
            UsePort(*found[input.Take<std::uint8_t>() % found.size()], hiddev, input);
        }
    } catch (const ErrnoException&) {
        // A device that fails while it is looked at or opened: the documented end.
    }
    return 0;
}
