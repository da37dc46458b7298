#include "virtual_player/board/expander.h"

#include <poll.h>

#include <chrono>
#include <iterator>
#include <utility>

#include "virtual_player/board/vhci_port.h"

namespace VirtualBoard {

namespace {

constexpr std::uint16_t VENDOR = 0x2877;
constexpr std::uint8_t REPORT_ID = 1;
constexpr std::size_t OUTPUT_REPORT_SIZE = 5;
constexpr std::chrono::milliseconds STEP(5);

// The 16 pins of the input report: only pin 0 is low.
const Bytes INPUT_REPORT = {REPORT_ID, 0xFE, 0xFF};

// Requests that differ from those of the touch board: bmRequestType, bRequest, descriptor kinds.
constexpr std::uint8_t INTERFACE_TO_HOST = 0x81;
constexpr std::uint8_t CLASS_FROM_INTERFACE = 0xA1;
constexpr std::uint8_t CLASS_TO_INTERFACE = 0x21;
constexpr std::uint8_t GET_REPORT = 1;
constexpr std::uint8_t SET_REPORT = 9;
constexpr unsigned CONFIGURATION = 2;
constexpr unsigned HID_REPORT = 0x22;

constexpr std::uint8_t REPORT_DESCRIPTOR[] = {
    0x06, 0x66,      0xFF, 0x09, 1,  // usage page FF66, usage 1
    0xA1, 1,                         // application
    0x06, 0x00,      0xFF,           //   usage page FF00
    0x85, REPORT_ID,                 //
    0x15, 0,         0x25, 1,        //   values 0 to 1
    0x75, 1,         0x95, 16,       //   16 of 1 bit
    0x19, 1,         0x29, 16,       //   usages 1 to 16
    0x81, 2,                         //   input
    0x19, 1,         0x29, 16,       //   the same usages
    0x91, 2,                         //   output
    0x1A, 0x01,      0x80,           //   usages 8001
    0x2A, 0x10,      0x80,           //     to 8010: directions
    0x91, 2,                         //   output
    0xC0,
};

/// Where the configuration descriptor has the size of the report descriptor: within the HID descriptor, which
/// follows those of the configuration and of the interface.
constexpr std::size_t REPORT_DESCRIPTOR_SIZE_AT = 9 + 9 + 7;

}  // namespace

Expander::Expander(unsigned port) : UsbDevice(m_unused, VENDOR), m_port(port), m_unused("KP480") {}

void Expander::Plug() {
    std::optional<FileDescriptor> socket;
    while (IsPortOccupied(m_port) || !(socket = PlugIn(m_port)))
        std::this_thread::sleep_for(STEP);
    m_written = 0;
    m_link.emplace(std::move(*socket), *this);
    m_server = std::jthread([this](const std::stop_token& stop) {
        pollfd cable{m_link->GetFd(), POLLIN, 0};
        while (!stop.stop_requested()) {
            if (::poll(&cable, 1, STEP.count()) > 0 && !m_link->ServeOne(Manners::ANSWERS))
                return;
        }
    });
    while (FindHiddevNode(m_port).empty())
        std::this_thread::sleep_for(STEP);
}

void Expander::Unplug() {
    m_server = {};
    m_link.reset();
}

std::uint32_t Expander::GetWritten() {
    const std::lock_guard lock(m_mutex);
    return m_written;
}

std::optional<Bytes> Expander::Control(const ControlRequest& request, const Bytes& data) {
    const unsigned kind = request.value >> 8;
    if (request.type == INTERFACE_TO_HOST && kind == HID_REPORT)
        return Bytes(std::begin(REPORT_DESCRIPTOR), std::end(REPORT_DESCRIPTOR));
    if (request.type == CLASS_FROM_INTERFACE && request.request == GET_REPORT)
        return INPUT_REPORT;
    if (request.type == CLASS_TO_INTERFACE && request.request == SET_REPORT) {
        if (data.size() != OUTPUT_REPORT_SIZE)
            return std::nullopt;
        const std::lock_guard lock(m_mutex);
        m_written = 0;
        for (std::size_t i = 1; i < data.size(); ++i)
            m_written |= std::uint32_t{data[i]} << (8 * (i - 1));
        return Bytes{};
    }
    std::optional<Bytes> answer = UsbDevice::Control(request, data);
    if (kind == CONFIGURATION && answer && answer->size() > REPORT_DESCRIPTOR_SIZE_AT)
        (*answer)[REPORT_DESCRIPTOR_SIZE_AT] = sizeof REPORT_DESCRIPTOR;
    return answer;
}

}  // namespace VirtualBoard
