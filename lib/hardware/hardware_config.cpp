#include "lib/hardware/hardware_config.h"

HardwareConfig::HardwareConfig(const DeviceTree& deviceTree)
    : m_limitedToHd(deviceTree.HasProperty("/vantora,player/limited-to-hd")) {}
