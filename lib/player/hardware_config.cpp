#include "lib/player/hardware_config.h"

#include <charconv>
#include <exception>
#include <system_error>

#include "lib/platform/message.h"
#include "lib/player/boot_environment.h"

namespace {

std::optional<std::string> FindText(const BootEnvironment& environment, const char* variable) {
    const auto found = environment.find(variable);
    return found == environment.end() ? std::nullopt : std::optional(found->second);
}

/// Reads a number in decimal or, after "0x", in hexadecimal digits. Another text is reported and counts as
/// absent.
std::optional<std::uint32_t> FindNumber(const BootEnvironment& environment, const char* variable) {
    const std::optional<std::string> text = FindText(environment, variable);
    if (!text) {
        return std::nullopt;
    }
    const bool isHexadecimal = text->starts_with("0x");
    const char* const end = text->data() + text->size();
    std::uint32_t number = 0;
    const auto [after, error] =
        std::from_chars(text->data() + (isHexadecimal ? 2 : 0), end, number, isHexadecimal ? 16 : 10);
    if (error != std::errc() || after != end) {
        PLATFORM_MESSAGE("Boot loader's environment: %s: '%s' is no 32-bit number\n", variable,
                         text->c_str());
        return std::nullopt;
    }
    return number;
}

}  // namespace

HardwareConfig::HardwareConfig(const DeviceTree& deviceTree, const std::string& bootConfiguration)
    : m_bootConfiguration(bootConfiguration),
      m_fromDeviceTree{deviceTree.ReadOrReport(&DeviceTree::ReadText, "/vantora,player/board"),
                       deviceTree.ReadOrReport(&DeviceTree::ReadCell, "/vantora,player/revision"),
                       deviceTree.ReadOrReport(&DeviceTree::ReadCell, "/vantora,player/features")} {}

const std::string& HardwareConfig::GetBoardIdentity() const {
    return Get(&Description::boardIdentity);
}

std::uint32_t HardwareConfig::GetRevision() const {
    return Get(&Description::revision);
}

std::uint32_t HardwareConfig::GetFeatures() const {
    return Get(&Description::features);
}

bool HardwareConfig::IsLimitedToHd() const {
    return (GetFeatures() & FEATURE_LIMITED_TO_HD) != 0;
}

template <class T>
const T& HardwareConfig::Get(std::optional<T> Description::*value) const {
    static const T UNKNOWN{};
    if (m_fromDeviceTree.*value) {
        return *(m_fromDeviceTree.*value);
    }
    std::call_once(m_flashWasRead, [this] { ReadFlash(); });
    return m_fromFlash.*value ? *(m_fromFlash.*value) : UNKNOWN;
}

void HardwareConfig::ReadFlash() const {
    try {
        const BootEnvironment environment = ReadBootEnvironment(m_bootConfiguration);
        m_fromFlash = {FindText(environment, "vantora_board"), FindNumber(environment, "vantora_revision"),
                       FindNumber(environment, "vantora_features")};
    } catch (const std::exception& failure) {
        PLATFORM_MESSAGE("Boot loader's environment: %s\n", failure.what());
    }
}
