#pragma once

// Which player this is and what its hardware can do, for code that must behave differently on different
// players. The main function creates the one object before any thread.

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "lib/platform/singleton.h"
#include "lib/player/device_tree.h"

/// What the device tree says, and what it does not say, the boot loader's environment in the player's flash
/// (docs/hardware-description.md). A value that is in neither is 0 or empty; one that cannot be read is
/// reported with one line and counts as absent.
///
/// The device tree is read when the object is created, the flash when first a value is asked for that the
/// device tree does not say. No value changes, and any thread may ask.
class HardwareConfig : public strata::Singleton<HardwareConfig> {
public:
    /// Bits of the feature word.
    static constexpr std::uint32_t FEATURE_LIMITED_TO_HD = 1u << 0;

    HardwareConfig() : HardwareConfig(DeviceTree()) {}

    /// @param deviceTree         describes the player; not used afterwards
    /// @param bootConfiguration  path of the file that says where the environment is; a player may lack it
    explicit HardwareConfig(const DeviceTree& deviceTree,
                            const std::string& bootConfiguration = "/etc/fw_env.config");

    /// @return the name of the player's main board; empty when unknown
    const std::string& GetBoardIdentity() const;

    /// @return the revision of the main board; 0 when unknown
    std::uint32_t GetRevision() const;

    /// @return the feature word, FEATURE_ bits; 0 when unknown
    std::uint32_t GetFeatures() const;

    /// Whether the video output is limited to HD sizes.
    bool IsLimitedToHd() const;

private:
    /// What one source says.
    struct Description {
        std::optional<std::string> boardIdentity;
        std::optional<std::uint32_t> revision;
        std::optional<std::uint32_t> features;
    };

    template <class T>
    const T& Get(std::optional<T> Description::*value) const;
    void ReadFlash() const;

    const std::string m_bootConfiguration;
    const Description m_fromDeviceTree;
    mutable std::once_flag m_flashWasRead;
    mutable Description m_fromFlash;  ///< changes only while m_flashWasRead lets one thread pass
};
