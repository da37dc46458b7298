#include "lib/hardware/hid_snapshot.h"

#include <linux/hiddev.h>

namespace ExternalControl::Impl {
namespace {

std::vector<std::uint32_t> ReadField(const HidDevice& device, const HidField& field, std::uint32_t count) {
    if (field.index == Descriptor::NO_FIELD) {
        return {};
    }
    const hiddev_usage_ref_multi usages = device.GetUsages(field, count, "GetUsages");
    return {usages.values, usages.values + usages.num_values};
}

}  // namespace

void FetchInputs(const HidDevice& device, const Descriptor& descriptor) {
    if (descriptor.inputField != Descriptor::NO_FIELD) {
        device.FetchReport(descriptor.reportId, "GetReport");
    }
}

HidSnapshot ReadSnapshot(const HidDevice& device, const Descriptor& descriptor) {
    const auto read = [&](const HidField& field) { return ReadField(device, field, descriptor.count); };
    return {read(descriptor.GetInputs()), read(descriptor.GetOutputs()), read(descriptor.GetDirections())};
}

}  // namespace ExternalControl::Impl
