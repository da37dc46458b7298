#pragma once

// The board's cable: the device side of USB/IP over a stream socket whose other end belongs to the kernel's
// virtual host controller. The kernel submits transfers; reads of the interrupt endpoint wait here for a
// report to send.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <utility>

#include "virtual_player/board/usb_device.h"
#include "virtual_player/common/file_descriptor.h"

namespace VirtualPlayer {

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
    /// @param now  nanoseconds of the monotonic clock
    /// @return false when the host has let go of the device
    /// @throws std::system_error when the socket fails, std::runtime_error for a message that makes no sense
    bool ServeOne(Manners manners, std::int64_t now);

    /// @param nanoseconds  how long a control transfer waits from now on before it is carried out; one that
    /// the host gives up meanwhile is not
    void SetDelay(std::int64_t nanoseconds) { m_delay = nanoseconds; }

    /// Carries out the control transfers that have waited for long enough, and gives the reports that the
    /// host asked for while the board was mute. @throws std::system_error
    void ServeWaiting(Manners manners, std::int64_t now);

    /// When the next waiting control transfer is due; none while there is none.
    std::optional<std::int64_t> NextTransferTime() const;

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

    struct ControlTransfer {
        std::int64_t due;
        std::uint32_t sequence;
        bool isToDevice;
        ControlRequest request;
        Bytes data;
    };

    void CarryOut(const ControlTransfer& transfer, Manners manners);
    void ServeUnlink(const Message& message);
    void ServeInterruptReads();
    bool ForgetRequest(std::uint32_t sequence);
    void Complete(std::uint32_t sequence, int status, std::size_t length, const Bytes& data);
    bool Receive(void* buffer, std::size_t size);
    void Transmit(const Message& message, const Bytes& data);

    FileDescriptor m_socket;
    UsbDevice& m_device;
    std::deque<InterruptRead> m_interruptReads;
    std::int64_t m_delay = 0;
    std::deque<ControlTransfer> m_waitingTransfers;  ///< in the order in which they are due
    std::set<std::uint32_t> m_unanswered;
    std::deque<Bytes> m_reports;
};

}  // namespace VirtualPlayer
