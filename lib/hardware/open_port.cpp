#include "lib/hardware/open_port.h"

#include <mutex>
#include <utility>

#include "lib/hardware/external_control_hid.h"
#include "lib/hardware/external_control_hid_finder.h"
#include "lib/hardware/external_control_input_driver.h"
#include "lib/hardware/external_control_legacy.h"
#include "lib/platform/string_operations.h"

namespace ExternalControl {
namespace {

std::shared_ptr<Port> OpenHidPort(const std::string& name, InputCallback inputCallback,
                                  LostCallback lostCallback) {
    static std::mutex mutex;
    static std::unique_ptr<const Impl::AvailablePorts> availablePorts;

    const std::lock_guard lock(mutex);
    // Outlives the first opening of a port: as long as it keeps the boards' nodes open, opening one of them
    // again takes no time.
    Impl::Finder finder;
    if (!availablePorts) {
        finder.Scan();
        finder.AskForModels();
        availablePorts = std::make_unique<Impl::AvailablePorts>(finder.GetDescriptors());
    }
    const Impl::PortOnHid::DescriptorPtr descriptor = availablePorts->Find(name);
    if (!descriptor) {
        throw PortNotFoundException();
    }
    return Impl::PortOnHid::Open(*descriptor, std::move(inputCallback), std::move(lostCallback));
}

}  // namespace

std::shared_ptr<Port> OpenPort(const std::string& name, InputCallback inputCallback,
                               LostCallback lostCallback) {
    // Without the mutex of the boards' table: LegacyPort opens its own boards through OpenPort.
    if (strata::EqualIgnoringAsciiCase(name, "vantora")) {
        return Impl::PortOnLinuxInputDriver::Open(std::move(inputCallback));
    }
    if (strata::EqualIgnoringAsciiCase(name, "VX1000-compatible")) {
        return std::make_shared<Impl::LegacyPort>(std::move(inputCallback));
    }
    return OpenHidPort(name, std::move(inputCallback), std::move(lostCallback));
}

}  // namespace ExternalControl
