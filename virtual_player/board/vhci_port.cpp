#include "virtual_player/board/vhci_port.h"

#include <fcntl.h>
#include <glob.h>
#include <sys/socket.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace VirtualPlayer {

namespace {

constexpr char CONTROLLER[] = "/sys/devices/platform/vhci_hcd.0/";
constexpr unsigned FULL_SPEED = 2;

std::system_error Failure(const std::string& what) {
    return std::system_error(errno, std::generic_category(), what);
}

std::vector<std::string> Glob(const std::string& pattern) {
    glob_t found{};
    const int result = ::glob(pattern.c_str(), 0, nullptr, &found);
    std::vector<std::string> paths(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    ::globfree(&found);
    if (result != 0 && result != GLOB_NOMATCH) {
        throw std::runtime_error("glob " + pattern);
    }
    return paths;
}

// The root hub counts its ports from 1.
std::string DevicePattern(unsigned port) {
    return std::string(CONTROLLER) + "usb*/[0-9]*-" + std::to_string(port + 1);
}

}  // namespace

std::optional<FileDescriptor> PlugIn(unsigned port) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        throw Failure("socketpair");
    }
    FileDescriptor deviceEnd(ends[0]);
    const FileDescriptor kernelEnd(ends[1]);  // the kernel takes a reference of its own

    const std::string path = std::string(CONTROLLER) + "attach";
    const FileDescriptor attach(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (attach.Get() < 0) {
        throw Failure(path);
    }
    const unsigned deviceId = port + 1;  // any number: nothing on this side has a bus
    const std::string request = std::to_string(port) + " " + std::to_string(kernelEnd.Get()) + " " +
                                std::to_string(deviceId) + " " + std::to_string(FULL_SPEED);
    if (::write(attach.Get(), request.data(), request.size()) < 0) {
        if (errno == EBUSY) {
            return std::nullopt;
        }
        throw Failure(path);
    }
    return deviceEnd;
}

std::string FindHiddevNode(unsigned port) {
    for (const std::string& path : Glob(DevicePattern(port) + "/*:1.0/usbmisc/hiddev*")) {
        std::string node = "/dev/usb/" + path.substr(path.rfind('/') + 1);
        if (::access(node.c_str(), R_OK | W_OK) == 0) {
            return node;
        }
    }
    return {};
}

bool IsPortOccupied(unsigned port) {
    return !Glob(DevicePattern(port)).empty();
}

}  // namespace VirtualPlayer
