#include "lib/hardware/hidraw.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "lib/platform/errno_exception.h"

namespace ExternalControl {
namespace {

namespace fs = std::filesystem;

/// No report that the kernel takes is longer.
constexpr std::size_t REPORT_LENGTH_MAX = 16384;
constexpr std::size_t TEXT_LENGTH_MAX = 256;

}  // namespace

std::optional<std::string> HidrawDevice::FindNode(const std::string& hiddevNode) {
    // The hiddev node's device is the USB interface, and the HID device a folder there with its hidraw node.
    const fs::path usbInterface = fs::path("/sys/class/usbmisc") / fs::path(hiddevNode).filename() / "device";
    std::error_code missing;
    for (const fs::directory_entry& entry : fs::directory_iterator(usbInterface, missing)) {
        for (const fs::directory_entry& node : fs::directory_iterator(entry.path() / "hidraw", missing)) {
            return "/dev/" + node.path().filename().string();
        }
    }
    return std::nullopt;
}

HidrawDevice::HidrawDevice(const std::string& path)
    : m_fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
    if (!m_fd.IsOpen()) {
        throw ErrnoException(errno, path);
    }
}

void HidrawDevice::Request(unsigned long request, void* argument, const char* operation) const {
    if (ioctl(GetFd(), request, argument) < 0) {
        throw ErrnoException(errno, operation);
    }
}

std::vector<std::uint8_t> HidrawDevice::GetReportDescriptor() const {
    int size = 0;
    Request(HIDIOCGRDESCSIZE, &size, "HIDIOCGRDESCSIZE");
    hidraw_report_descriptor descriptor{};
    descriptor.size = static_cast<std::uint32_t>(size);
    Request(HIDIOCGRDESC, &descriptor, "HIDIOCGRDESC");
    return {descriptor.value, descriptor.value + descriptor.size};
}

std::string HidrawDevice::GetText(unsigned long request, const char* operation) const {
    std::array<char, TEXT_LENGTH_MAX> text{};  // the kernel leaves a zero at the end, or none
    Request(request, text.data(), operation);
    text.back() = '\0';
    return text.data();
}

std::string HidrawDevice::GetName() const {
    return GetText(HIDIOCGRAWNAME(TEXT_LENGTH_MAX), "HIDIOCGRAWNAME");
}

std::string HidrawDevice::GetPhysicalPath() const {
    return GetText(HIDIOCGRAWPHYS(TEXT_LENGTH_MAX), "HIDIOCGRAWPHYS");
}

hidraw_devinfo HidrawDevice::GetInfo() const {
    hidraw_devinfo info{};
    Request(HIDIOCGRAWINFO, &info, "HIDIOCGRAWINFO");
    return info;
}

std::optional<std::vector<std::uint8_t>> HidrawDevice::ReadReport() const {
    std::array<std::uint8_t, REPORT_LENGTH_MAX> report;
    const ssize_t length = read(GetFd(), report.data(), report.size());
    if (length < 0 && errno == EAGAIN) {
        return std::nullopt;
    }
    if (length < 0) {
        throw ErrnoException(errno, "read");
    }
    return std::vector<std::uint8_t>(report.data(), report.data() + length);
}

}  // namespace ExternalControl
