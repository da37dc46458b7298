#include "lib/hardware/hid_snapshot.h"

#include <linux/hiddev.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>

#include "lib/platform/errno_exception.h"
#include "lib/platform/string_operations.h"

namespace ExternalControl::Impl {
namespace {

std::vector<std::uint32_t> ReadField(int device, const Descriptor& descriptor, std::uint32_t reportType,
                                     std::uint32_t field, std::uint32_t usageCode) {
    if (field == Descriptor::NO_FIELD) {
        return {};
    }
    hiddev_usage_ref_multi usages{};
    usages.uref.report_type = reportType;
    usages.uref.report_id = descriptor.reportId;
    usages.uref.field_index = field;
    usages.uref.usage_code = usageCode;
    usages.num_values = std::min<std::uint32_t>(descriptor.count, HID_MAX_MULTI_USAGES);
    if (ioctl(device, HIDIOCGUSAGES, &usages) < 0) {
        throw ErrnoException(errno, "GetUsages");
    }
    return {usages.values, usages.values + usages.num_values};
}

}  // namespace

void FetchInputs(int device, const Descriptor& descriptor) {
    if (descriptor.inputField == Descriptor::NO_FIELD) {
        return;
    }
    hiddev_report_info report{};
    report.report_type = HID_REPORT_TYPE_INPUT;
    report.report_id = descriptor.reportId;
    if (ioctl(device, HIDIOCGREPORT, &report) < 0) {
        throw ErrnoException(errno, "GetReport");
    }
}

HidSnapshot ReadSnapshot(int device, const Descriptor& descriptor) {
    return {
        ReadField(device, descriptor, HID_REPORT_TYPE_INPUT, descriptor.inputField, descriptor.usageBase),
        ReadField(device, descriptor, HID_REPORT_TYPE_OUTPUT, descriptor.outputField, descriptor.usageBase),
        ReadField(device, descriptor, HID_REPORT_TYPE_OUTPUT, descriptor.directionField,
                  descriptor.usageBase | DIRECTION_USAGE)};
}

std::string ReadHidVersion(int device) {
    hiddev_devinfo info{};
    if (ioctl(device, HIDIOCGDEVINFO, &info) < 0) {
        throw ErrnoException(errno);
    }
    return strprintf("%04hx", static_cast<unsigned short>(info.version));
}

}  // namespace ExternalControl::Impl
