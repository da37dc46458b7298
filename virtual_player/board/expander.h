#pragma once

// An expander: the board of the family whose pins go either way. One report holds 16 inputs, 16 outputs and
// 16 directions; the inputs are active low. It serves itself on a thread of its own, in the process that
// makes it.

#include <cstdint>
#include <mutex>
#include <optional>
#include <thread>

#include "virtual_player/board/touch_board_model.h"
#include "virtual_player/board/usb_device.h"
#include "virtual_player/board/usbip_link.h"

namespace VirtualBoard {

class Expander : public UsbDevice {
public:
    /// @param port  the port of the virtual host controller that it is plugged into, from 0
    explicit Expander(unsigned port);

    /// Puts the board on the bus, with all pins inputs again, and returns when the kernel has made its node.
    /// @throws std::system_error when the kernel does not take it
    void Plug();

    /// Pulls the cable; the kernel clears up later.
    void Unplug();

    /// The last report from the host: the outputs in the low half, the directions in the high half. 0 after
    /// plugging.
    std::uint32_t GetWritten();

    /// Control transfers of the kernel; called on the board's own thread.
    std::optional<Bytes> Control(const ControlRequest& request, const Bytes& data) override;

private:
    const unsigned m_port;
    TouchBoardModel m_unused;  ///< what a UsbDevice is otherwise made of
    std::mutex m_mutex;
    std::uint32_t m_written = 0;
    std::optional<UsbIpLink> m_link;
    std::jthread m_server;  // last: uses the rest
};

}  // namespace VirtualBoard
