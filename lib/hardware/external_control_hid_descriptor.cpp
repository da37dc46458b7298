#include "lib/hardware/external_control_hid_descriptor.h"

#include <linux/hiddev.h>

#include "lib/platform/string_operations.h"

namespace ExternalControl::Impl {

HidField Descriptor::GetInputs() const {
    return {HID_REPORT_TYPE_INPUT, reportId, inputField, usageBase};
}

HidField Descriptor::GetOutputs() const {
    return {HID_REPORT_TYPE_OUTPUT, reportId, outputField, usageBase};
}

HidField Descriptor::GetDirections() const {
    return {HID_REPORT_TYPE_OUTPUT, reportId, directionField, usageBase | DIRECTION_USAGE};
}

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
