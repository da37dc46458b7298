#pragma once

// A node of the kernel's hiddev driver: every request that is made to one, once. How the requests behave is
// told in docs/hiddev.md.

#include <linux/hiddev.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "lib/platform/unique_fd.h"

namespace ExternalControl::Impl {

/// Where usages are: a field of a report.
struct HidField {
    std::uint32_t reportType = 0;  ///< HID_REPORT_TYPE_INPUT or HID_REPORT_TYPE_OUTPUT
    std::uint32_t reportId = 0;    ///< the report's number; 0 where the device does not number them
    std::uint32_t index = 0;       ///< of the field in the report
    std::uint32_t usageCode = 0;   ///< of the first usage; the others follow
};

/// Owns the descriptor of an open node, or nothing; move-only. Requests may come from any thread, but not
/// while another thread moves or closes it. A request that the kernel fails throws ErrnoException, with the
/// name of the operation that it was for; after the device was unplugged the error is ENODEV.
class HidDevice {
public:
    /// Owns nothing.
    HidDevice() = default;

    /// Opens a node for reading, without waiting for anything but the device's own start, and for requests of
    /// all kinds. Like the other two ways of opening it blocks for some 60 ms when nobody else has the node
    /// open.
    /// @param number  N of /dev/usb/hiddevN
    /// @throws ErrnoException with the path
    static HidDevice Open(std::uint32_t number);

    /// Opens a node for requests that change nothing.
    /// @return nothing when it cannot be opened
    static std::optional<HidDevice> OpenToLook(std::uint32_t number);

    /// Opens the node of a device that has come back, as Open does, but deliberately without O_CLOEXEC.
    /// @param path  of the node
    /// @return nothing when it cannot be opened
    static std::optional<HidDevice> Reopen(const std::string& path);

    void Close() { m_fd.Reset(); }  ///< closes the node, if one is open

    int GetFd() const { return m_fd.Get(); }  ///< the descriptor, still owned; negative when nothing is open

    // --- What the device is ---

    /// @throws ErrnoException without a name
    hiddev_devinfo GetDeviceInfo() const;

    /// @return the version of the device, as four hexadecimal digits
    /// @throws ErrnoException without a name
    std::string GetVersion() const;

    /// @return the usage of one of the device's applications; nothing when there is no such one
    std::optional<std::uint32_t> GetApplication(unsigned index) const;

    /// @param reportType  HID_REPORT_TYPE_INPUT or HID_REPORT_TYPE_OUTPUT
    /// @param reportId  HID_REPORT_ID_FIRST, or the last report's with HID_REPORT_ID_NEXT
    /// @return nothing when there is no such report
    std::optional<hiddev_report_info> FindReport(std::uint32_t reportType, std::uint32_t reportId) const;

    /// @param field  its usage code does not matter
    /// @throws ErrnoException without a name
    hiddev_field_info GetFieldInfo(const HidField& field) const;

    /// The first such request after the device was plugged in fetches all its inputs: it blocks for 10
    /// seconds when the device does not answer.
    /// @param field  its usage code does not matter
    /// @return the code of the field's first usage; nothing when it has none
    std::optional<std::uint32_t> FindUsageCode(const HidField& field) const;

    // --- The values that the kernel remembers ---

    /// @param field      where the usage is
    /// @param usage  counts from 0
    /// @param operation  names the exception
    std::int32_t GetUsage(const HidField& field, unsigned usage, const char* operation) const;

    /// @param field      where the usages are
    /// @param count  of the values wanted; no more than HID_MAX_MULTI_USAGES come
    /// @param operation  names the exception
    /// @return num_values values, of the first usages
    hiddev_usage_ref_multi GetUsages(const HidField& field, std::uint32_t count, const char* operation) const;

    /// Sets what the next report of the field has.
    void SetUsage(const HidField& field, unsigned usage, std::int32_t value, const char* operation) const;

    /// Sets what the next report of the field has, from the first usage on.
    /// @param field      where the usages are
    /// @param usages  num_values values; the rest is filled in
    /// @param operation  names the exception
    void SetUsages(const HidField& field, hiddev_usage_ref_multi& usages, const char* operation) const;

    // --- Reports: these block for 10 seconds when the device does not answer, and succeed all the same ---

    /// Sends a report of outputs.
    void SendReport(std::uint32_t reportId, const char* operation) const;

    /// Fetches a report of inputs.
    void FetchReport(std::uint32_t reportId, const char* operation) const;

    /// Fetches all reports of inputs, each of which may block.
    void FetchAllReports(const char* operation) const;

    // --- Events ---

    /// Reads events that have come, without waiting for one if the node was opened so.
    /// @param events    receives them
    /// @param capacity  how many there is room for
    /// @return how many were read, perhaps none; nothing when the device fails: errno tells
    std::optional<std::size_t> ReadEvents(hiddev_event* events, std::size_t capacity) const;

private:
    explicit HidDevice(strata::UniqueFd fd) : m_fd(std::move(fd)) {}

    void Request(unsigned long request, void* argument, const char* operation) const;

    strata::UniqueFd m_fd;
};

}  // namespace ExternalControl::Impl
