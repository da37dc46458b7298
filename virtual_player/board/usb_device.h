#pragma once

// The board as a USB device: answers the control requests of enumeration and of the HID class.

#include <array>
#include <cstdint>
#include <optional>

#include "virtual_player/board/hid_reports.h"
#include "virtual_player/board/touch_board_model.h"

namespace VirtualBoard {

/// The endpoint that input reports come from.
constexpr std::uint8_t INTERRUPT_ENDPOINT = 1;

/// The eight bytes that open a control transfer.
struct ControlRequest {
    explicit ControlRequest(const std::array<std::uint8_t, 8>& bytes);

    std::uint8_t type;
    std::uint8_t request;
    std::uint16_t value;
    std::uint16_t index;
    std::uint16_t length;
};

class UsbDevice {
public:
    /// @param board  must outlive the device
    UsbDevice(TouchBoardModel& board, std::uint16_t vendor) : m_board(board), m_vendor(vendor) {}
    virtual ~UsbDevice() = default;

    /// Makes this a board without one of its reports, from the next time it is plugged in.
    void LeaveOut(std::optional<ReportId> report) { m_leftOut = report; }

    /// Runs one control transfer.
    /// @param data  what the host sent with it; empty for reads
    /// @return what the device sends back (empty for writes), cut to the length asked for; none for a stall
    virtual std::optional<Bytes> Control(const ControlRequest& request, const Bytes& data);

private:
    std::optional<Bytes> Answer(const ControlRequest& request, const Bytes& data);
    std::optional<Bytes> Descriptor(unsigned kind, unsigned index) const;

    TouchBoardModel& m_board;
    const std::uint16_t m_vendor;
    std::optional<ReportId> m_leftOut;
};

}  // namespace VirtualBoard
