#pragma once

// Which player this is and what its hardware can do, for code that must behave differently on different
// players. The main function creates the one object before everything else.

#include <cstdint>
#include <string>

#include "lib/hardware/device_tree.h"
#include "lib/platform/singleton.h"

/// Reads everything once, when it is created; never changes afterwards, so any thread may ask.
class HardwareConfig : public strata::Singleton<HardwareConfig> {
public:
    /// Bits of the feature word.
    static constexpr std::uint32_t FEATURE_LIMITED_TO_HD = 1u << 0;

    /// Reads the device tree that the kernel was started with (docs/hardware-description.md). On a machine
    /// without one, or without a property, the property's default holds; a property that cannot be read is
    /// reported with one line and counts as absent.
    HardwareConfig() : HardwareConfig(DeviceTree()) {}

    explicit HardwareConfig(const DeviceTree& deviceTree);

    /// @return the name of the player's main board; empty when unknown
    const std::string& GetBoardIdentity() const { return m_boardIdentity; }

    /// @return the revision of the main board; 0 when unknown
    std::uint32_t GetRevision() const { return m_revision; }

    /// @return the feature word, FEATURE_ bits; 0 when unknown
    std::uint32_t GetFeatures() const { return m_features; }

    /// Whether the video output is limited to HD sizes.
    bool IsLimitedToHd() const { return (m_features & FEATURE_LIMITED_TO_HD) != 0; }

private:
    const std::string m_boardIdentity;
    const std::uint32_t m_revision;
    const std::uint32_t m_features;
};
