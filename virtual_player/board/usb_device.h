#pragma once

// The board as a USB device: answers the control requests of enumeration and of the HID class.

#include <array>
#include <cstdint>
#include <optional>

#include "virtual_player/board/board.h"

namespace VirtualPlayer {

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
    /// @param board   must outlive the device
    /// @param vendor  the vendor to appear as; the board's own unless given
    UsbDevice(Board& board, std::optional<std::uint16_t> vendor) : m_board(board), m_vendor(vendor) {}

    /// Runs one control transfer.
    /// @param data  what the host sent with it; empty for reads
    /// @return what the device sends back (empty for writes), cut to the length asked for; none for a stall
    std::optional<Bytes> Control(const ControlRequest& request, const Bytes& data);

    /// The host has read an input report from the interrupt endpoint.
    void OnReportRead(const Bytes& report) { m_board.OnReportRead(report); }

private:
    std::optional<Bytes> Answer(const ControlRequest& request, const Bytes& data);
    std::optional<Bytes> Descriptor(unsigned kind, unsigned index) const;

    Board& m_board;
    const std::optional<std::uint16_t> m_vendor;
};

}  // namespace VirtualPlayer
