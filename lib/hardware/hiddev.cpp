#include "lib/hardware/hiddev.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "lib/platform/errno_exception.h"
#include "lib/platform/string_operations.h"

namespace ExternalControl::Impl {
namespace {

std::string GetPath(std::uint32_t number) {
    return strprintf("/dev/usb/hiddev%u", number);
}

/// @param usage  counts from 0
hiddev_usage_ref Refer(const HidField& field, unsigned usage) {
    hiddev_usage_ref reference{};
    reference.report_type = field.reportType;
    reference.report_id = field.reportId;
    reference.field_index = field.index;
    reference.usage_index = usage;
    reference.usage_code = field.usageCode + usage;
    return reference;
}

hiddev_report_info ReferToReport(std::uint32_t reportType, std::uint32_t reportId) {
    hiddev_report_info report{};
    report.report_type = reportType;
    report.report_id = reportId;
    return report;
}

}  // namespace

HidDevice HidDevice::Open(std::uint32_t number) {
    const std::string path = GetPath(number);
    strata::UniqueFd fd(open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!fd.IsOpen()) {
        throw ErrnoException(errno, path);
    }
    return HidDevice(std::move(fd));
}

std::optional<HidDevice> HidDevice::OpenToLook(std::uint32_t number) {
    strata::UniqueFd fd(open(GetPath(number).c_str(), O_RDONLY | O_CLOEXEC));
    return fd.IsOpen() ? std::optional(HidDevice(std::move(fd))) : std::nullopt;
}

std::optional<HidDevice> HidDevice::Reopen(const std::string& path) {
    strata::UniqueFd fd(open(path.c_str(), O_RDWR | O_NONBLOCK));
    return fd.IsOpen() ? std::optional(HidDevice(std::move(fd))) : std::nullopt;
}

void HidDevice::Request(unsigned long request, void* argument, const char* operation) const {
    if (ioctl(GetFd(), request, argument) < 0) {
        throw operation != nullptr ? ErrnoException(errno, operation) : ErrnoException(errno);
    }
}

hiddev_devinfo HidDevice::GetDeviceInfo() const {
    hiddev_devinfo info{};
    Request(HIDIOCGDEVINFO, &info, nullptr);
    return info;
}

std::string HidDevice::GetVersion() const {
    return strprintf("%04hx", static_cast<unsigned short>(GetDeviceInfo().version));
}

std::optional<std::uint32_t> HidDevice::GetApplication(unsigned index) const {
    // The usage is the result of the call, and negative for those of vendors; only -1 is an error.
    const int result = ioctl(GetFd(), HIDIOCAPPLICATION, index);
    return result == -1 ? std::nullopt : std::optional(static_cast<std::uint32_t>(result));
}

std::optional<hiddev_report_info> HidDevice::FindReport(std::uint32_t reportType,
                                                        std::uint32_t reportId) const {
    hiddev_report_info report = ReferToReport(reportType, reportId);
    return ioctl(GetFd(), HIDIOCGREPORTINFO, &report) < 0 ? std::nullopt : std::optional(report);
}

hiddev_field_info HidDevice::GetFieldInfo(const HidField& field) const {
    hiddev_field_info info{};
    info.report_type = field.reportType;
    info.report_id = field.reportId;
    info.field_index = field.index;
    Request(HIDIOCGFIELDINFO, &info, nullptr);
    // The kernel answers with another number in the place of the index.
    info.field_index = field.index;
    return info;
}

std::optional<std::uint32_t> HidDevice::FindUsageCode(const HidField& field) const {
    hiddev_usage_ref reference = Refer(field, 0);
    return ioctl(GetFd(), HIDIOCGUCODE, &reference) < 0 ? std::nullopt : std::optional(reference.usage_code);
}

std::int32_t HidDevice::GetUsage(const HidField& field, unsigned usage, const char* operation) const {
    hiddev_usage_ref reference = Refer(field, usage);
    Request(HIDIOCGUSAGE, &reference, operation);
    return reference.value;
}

hiddev_usage_ref_multi HidDevice::GetUsages(const HidField& field, std::uint32_t count,
                                            const char* operation) const {
    hiddev_usage_ref_multi usages{};
    usages.uref = Refer(field, 0);
    usages.num_values = std::min<std::uint32_t>(count, HID_MAX_MULTI_USAGES);
    Request(HIDIOCGUSAGES, &usages, operation);
    return usages;
}

void HidDevice::SetUsage(const HidField& field, unsigned usage, std::int32_t value,
                         const char* operation) const {
    hiddev_usage_ref reference = Refer(field, usage);
    reference.value = value;
    Request(HIDIOCSUSAGE, &reference, operation);
}

void HidDevice::SetUsages(const HidField& field, hiddev_usage_ref_multi& usages,
                          const char* operation) const {
    usages.uref = Refer(field, 0);
    Request(HIDIOCSUSAGES, &usages, operation);
}

void HidDevice::SendReport(std::uint32_t reportId, const char* operation) const {
    hiddev_report_info report = ReferToReport(HID_REPORT_TYPE_OUTPUT, reportId);
    Request(HIDIOCSREPORT, &report, operation);
}

void HidDevice::FetchReport(std::uint32_t reportId, const char* operation) const {
    hiddev_report_info report = ReferToReport(HID_REPORT_TYPE_INPUT, reportId);
    Request(HIDIOCGREPORT, &report, operation);
}

void HidDevice::FetchAllReports(const char* operation) const {
    Request(HIDIOCINITREPORT, nullptr, operation);
}

std::optional<std::size_t> HidDevice::ReadEvents(hiddev_event* events, std::size_t capacity) const {
    const ssize_t length = read(GetFd(), events, capacity * sizeof *events);
    if (length < 0) {
        return errno == EAGAIN ? std::optional<std::size_t>(0) : std::nullopt;
    }
    return static_cast<std::size_t>(length) / sizeof *events;
}

}  // namespace ExternalControl::Impl
