#pragma once

// A node of the kernel's hidraw driver: what a board is and the reports that it sends, byte for byte, as
// hiddev does not tell them. What hidraw shows is told in docs/recordings.md.

#include <linux/hidraw.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lib/platform/unique_fd.h"

namespace ExternalControl {

/// Owns the descriptor of an open node; move-only. Any thread, one at a time. After the board was unplugged
/// requests fail with ENODEV, and reads with EIO once the reports that came before have been read.
class HidrawDevice {
public:
    /// Looks for the node of the HID device that a hiddev node is of.
    /// @param hiddevNode  as "/dev/usb/hiddev3"
    /// @return as "/dev/hidraw1"; nothing when there is none, for not every kernel has the driver
    static std::optional<std::string> FindNode(const std::string& hiddevNode);

    /// Opens a node for reading, without waiting for reports. Blocks for some 60 ms, and loses the reports of
    /// that time, when nobody else has the board open.
    /// @param path  of the node
    /// @throws ErrnoException with the path
    explicit HidrawDevice(const std::string& path);

    /// @return a descriptor that is readable while there are reports, or once the board has gone
    int GetFd() const { return m_fd.Get(); }

    /// @throws ErrnoException "HIDIOCGRDESCSIZE", "HIDIOCGRDESC"
    std::vector<std::uint8_t> GetReportDescriptor() const;

    /// @return maker and product, as the kernel has put them together
    /// @throws ErrnoException "HIDIOCGRAWNAME"
    std::string GetName() const;

    /// @return where the board is plugged in, as "usb-0000:00:14.0-1/input0"
    /// @throws ErrnoException "HIDIOCGRAWPHYS"
    std::string GetPhysicalPath() const;

    /// @return bus, vendor and product; the last two are signed there
    /// @throws ErrnoException "HIDIOCGRAWINFO"
    hidraw_devinfo GetInfo() const;

    /// Reads the oldest report that has not been read yet, without waiting for one.
    /// @return the report, its number first where the board numbers them; nothing when there is none
    /// @throws ErrnoException "read"
    std::optional<std::vector<std::uint8_t>> ReadReport() const;

private:
    void Request(unsigned long request, void* argument, const char* operation) const;
    std::string GetText(unsigned long request, const char* operation) const;

    strata::UniqueFd m_fd;
};

}  // namespace ExternalControl
