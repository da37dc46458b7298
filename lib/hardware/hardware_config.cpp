#include "lib/hardware/hardware_config.h"

HardwareConfig::HardwareConfig(const DeviceTree& deviceTree)
    : m_boardIdentity(deviceTree.ReadOrReport(&DeviceTree::ReadText, "/vantora,player/board").value_or("")),
      m_revision(deviceTree.ReadOrReport(&DeviceTree::ReadCell, "/vantora,player/revision").value_or(0)),
      m_features(deviceTree.ReadOrReport(&DeviceTree::ReadCell, "/vantora,player/features").value_or(0)) {}
