#include "virtual_player/board/usbip_link.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace VirtualPlayer {

namespace {

enum Command : std::uint32_t { SUBMIT = 1, UNLINK = 2, SUBMIT_ANSWER = 3, UNLINK_ANSWER = 4 };
enum TransferDirection : std::uint32_t { TO_DEVICE = 0, TO_HOST = 1 };

constexpr std::size_t TRANSFER_MAX = 4096;
constexpr std::size_t WAITING_REPORTS_MAX = 16;

}  // namespace

// Twelve big-endian words; what the last seven mean depends on the command.
struct UsbIpLink::Message {
    std::uint32_t command = 0;
    std::uint32_t sequence = 0;
    std::uint32_t device = 0;
    std::uint32_t direction = 0;
    std::uint32_t endpoint = 0;
    std::uint32_t flagsOrStatus = 0;  ///< an unlink names the sequence number of the request to forget here
    std::uint32_t length = 0;
    std::uint32_t startFrame = 0;
    std::uint32_t packets = 0;
    std::uint32_t interval = 0;
    std::array<std::uint8_t, 8> setup{};

    void SwapByteOrder() {
        for (std::uint32_t* word : {&command, &sequence, &device, &direction, &endpoint, &flagsOrStatus,
                                    &length, &startFrame, &packets, &interval}) {
            *word = htonl(*word);
        }
    }
};

bool UsbIpLink::ServeOne(Manners manners, std::int64_t now) {
    static_assert(sizeof(Message) == 48);
    Message message;
    if (!Receive(&message, sizeof message)) {
        return false;
    }
    message.SwapByteOrder();
    if (message.command == UNLINK) {
        ServeUnlink(message);
        return true;
    }
    if (message.command != SUBMIT || message.length > TRANSFER_MAX) {
        throw std::runtime_error("USB/IP: unexpected message");
    }

    Bytes data(message.direction == TO_DEVICE ? message.length : 0);
    if (!data.empty() && !Receive(data.data(), data.size())) {
        return false;
    }
    if (message.endpoint == 0) {
        // An earlier one may have been given a longer delay; transfers of one pipe keep their order.
        const std::int64_t due =
            std::max(now + m_delay, m_waitingTransfers.empty() ? now : m_waitingTransfers.back().due);
        m_waitingTransfers.push_back(
            {due, message.sequence, message.direction == TO_DEVICE, ControlRequest(message.setup), data});
        ServeWaiting(manners, now);
    } else if (message.endpoint == INTERRUPT_ENDPOINT && message.direction == TO_HOST) {
        m_interruptReads.push_back({message.sequence, message.length});
        if (manners != Manners::MUTE) {
            ServeInterruptReads();
        }
    } else {
        Complete(message.sequence, -EPIPE, 0, {});
    }
    return true;
}

void UsbIpLink::ServeWaiting(Manners manners, std::int64_t now) {
    while (!m_waitingTransfers.empty() && m_waitingTransfers.front().due <= now) {
        const ControlTransfer transfer = std::move(m_waitingTransfers.front());
        m_waitingTransfers.pop_front();
        CarryOut(transfer, manners);
    }
    if (manners != Manners::MUTE) {
        ServeInterruptReads();
    }
}

std::optional<std::int64_t> UsbIpLink::NextTransferTime() const {
    if (m_waitingTransfers.empty()) {
        return std::nullopt;
    }
    return m_waitingTransfers.front().due;
}

void UsbIpLink::CarryOut(const ControlTransfer& transfer, Manners manners) {
    if (manners == Manners::MUTE) {
        m_unanswered.insert(transfer.sequence);
        return;
    }
    std::optional<Bytes> answer;
    if (manners == Manners::ANSWERS) {
        answer = m_device.Control(transfer.request, transfer.data);
    }
    if (!answer) {
        Complete(transfer.sequence, -EPIPE, 0, {});
    } else if (transfer.isToDevice) {
        Complete(transfer.sequence, 0, transfer.data.size(), {});
    } else {
        Complete(transfer.sequence, 0, answer->size(), *answer);
    }
}

void UsbIpLink::ServeUnlink(const Message& message) {
    Message answer;
    answer.command = UNLINK_ANSWER;
    answer.sequence = message.sequence;
    // Zero says that the request was complete before: its answer is on its way or has arrived.
    answer.flagsOrStatus = ForgetRequest(message.flagsOrStatus) ? static_cast<std::uint32_t>(-ECONNRESET) : 0;
    Transmit(answer, {});
}

bool UsbIpLink::ForgetRequest(std::uint32_t sequence) {
    const auto isIt = [&](const auto& waiting) { return waiting.sequence == sequence; };
    return std::erase_if(m_interruptReads, isIt) + std::erase_if(m_waitingTransfers, isIt) +
               m_unanswered.erase(sequence) >
           0;
}

void UsbIpLink::Send(const Bytes& report) {
    if (m_reports.size() == WAITING_REPORTS_MAX) {
        m_reports.pop_front();
    }
    m_reports.push_back(report);
    ServeInterruptReads();
}

void UsbIpLink::ServeInterruptReads() {
    while (!m_interruptReads.empty() && !m_reports.empty()) {
        const InterruptRead read = m_interruptReads.front();
        Bytes report = m_reports.front();
        m_interruptReads.pop_front();
        m_reports.pop_front();
        m_device.OnReportRead(report);
        report.resize(std::min(report.size(), read.length));
        Complete(read.sequence, 0, report.size(), report);
    }
}

void UsbIpLink::Complete(std::uint32_t sequence, int status, std::size_t length, const Bytes& data) {
    Message answer;
    answer.command = SUBMIT_ANSWER;
    answer.sequence = sequence;
    answer.flagsOrStatus = static_cast<std::uint32_t>(status);
    answer.length = static_cast<std::uint32_t>(length);
    Transmit(answer, data);
}

bool UsbIpLink::Receive(void* buffer, std::size_t size) {
    const ssize_t received = ::recv(m_socket.Get(), buffer, size, MSG_WAITALL);
    if (received < 0 && errno != ECONNRESET) {
        throw std::system_error(errno, std::generic_category(), "recv");
    }
    return received == static_cast<ssize_t>(size);
}

void UsbIpLink::Transmit(const Message& message, const Bytes& data) {
    Message swapped = message;
    swapped.SwapByteOrder();
    Bytes bytes(sizeof swapped);
    std::memcpy(bytes.data(), &swapped, sizeof swapped);
    bytes.insert(bytes.end(), data.begin(), data.end());
    const ssize_t sent = ::send(m_socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    // A host that has gone is noticed by the next receive.
    if (sent < 0 && errno != EPIPE && errno != ECONNRESET) {
        throw std::system_error(errno, std::generic_category(), "send");
    }
    if (sent >= 0 && static_cast<std::size_t>(sent) != bytes.size()) {
        throw std::runtime_error("USB/IP: message cut short");
    }
}

}  // namespace VirtualPlayer
