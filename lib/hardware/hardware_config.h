#pragma once

// What the player's hardware can do, for code that must behave differently on different players. The main
// function creates the one object before everything else.

#include "lib/hardware/device_tree.h"
#include "lib/platform/singleton.h"

class HardwareConfig : public strata::Singleton<HardwareConfig> {
public:
    /// Reads the device tree that the kernel was started with. A machine without one, or without the
    /// properties (docs/hardware-description.md), has no limits.
    HardwareConfig() : HardwareConfig(DeviceTree()) {}

    explicit HardwareConfig(const DeviceTree& deviceTree);

    /// Whether the video output is limited to HD sizes. Any thread.
    bool IsLimitedToHd() const { return m_limitedToHd; }

private:
    const bool m_limitedToHd;
};
