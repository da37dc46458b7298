#pragma once

// The board's cable: the device side of USB/IP over a stream socket whose other end belongs to the kernel's
// virtual host controller. The kernel submits transfers; reads of the interrupt endpoint wait here for a
// report to send.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <set>
#include <utility>

#include "virtual_player/board/usb_device.h"
#include "virtual_player/common/file_descriptor.h"

namespace VirtualBoard {

using VirtualPlayer::FileDescriptor;

/// How a board treats control transfers, and whether it speaks at all.
enum class Manners {
    ANSWERS,
    STALLS,  ///< every control transfer is refused; input reports still come
    MUTE,    ///< control transfers stay unanswered for ever; no input report comes
};

class UsbIpLink {
public:
    /// @param socket  blocking stream socket, this end
    /// @param device  must outlive the link
    UsbIpLink(FileDescriptor socket, UsbDevice& device) : m_socket(std::move(socket)), m_device(device) {}

    int GetFd() const { return m_socket.Get(); }

    /// Serves one message of the host; call when the socket is readable.
    /// @return false when the host has let go of the device
    /// @throws std::system_error when the socket fails, std::runtime_error for a message that makes no sense
    bool ServeOne(Manners manners);

    /// Sends an input report as soon as the host reads one. The oldest report gives way when too many wait.
    void Send(const Bytes& report);

    /// Whether no report waits for the host.
    bool IsEndpointFree() const { return m_reports.empty(); }

private:
    struct Message;
    struct InterruptRead {
        std::uint32_t sequence;
        std::size_t length;
    };

    void ServeControl(const Message& message, const Bytes& data, Manners manners);
    void ServeUnlink(const Message& message);
    void ServeInterruptReads();
    bool ForgetRequest(std::uint32_t sequence);
    void Complete(std::uint32_t sequence, int status, std::size_t length, const Bytes& data);
    bool Receive(void* buffer, std::size_t size);
    void Transmit(const Message& message, const Bytes& data);

    FileDescriptor m_socket;
    UsbDevice& m_device;
    std::deque<InterruptRead> m_interruptReads;
    std::set<std::uint32_t> m_unanswered;
    std::deque<Bytes> m_reports;
};

}  // namespace VirtualBoard
