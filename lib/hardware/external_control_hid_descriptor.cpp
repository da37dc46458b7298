#include "lib/hardware/external_control_hid_descriptor.h"

#include "lib/platform/string_operations.h"

namespace ExternalControl::Impl {

std::string Descriptor::ToString() const {
    std::string text = strprintf("ID=%u, ", reportId);
    if ((capabilities & CAPABILITY_INPUT) != 0) {
        text += strprintf("INPUT=%u, ", inputField);
    }
    if ((capabilities & CAPABILITY_OUTPUT) != 0) {
        text += strprintf("OUTPUT=%u, ", outputField);
    }
    if (capabilities == CAPABILITY_BOTH) {
        text += strprintf("DIRECTION=%u, ", directionField);
    }
    return text + strprintf("usage=%x, count=%u, device=%d", usageBase, count, static_cast<int>(hid_device));
}

}  // namespace ExternalControl::Impl
