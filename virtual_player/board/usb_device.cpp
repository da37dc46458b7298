#include "virtual_player/board/usb_device.h"

#include <string_view>

namespace VirtualPlayer {

namespace {

// bmRequestType.
constexpr std::uint8_t HOST_TO_DEVICE = 0x00;
constexpr std::uint8_t HOST_TO_INTERFACE = 0x01;
constexpr std::uint8_t HOST_TO_ENDPOINT = 0x02;
constexpr std::uint8_t DEVICE_TO_HOST = 0x80;
constexpr std::uint8_t INTERFACE_TO_HOST = 0x81;
constexpr std::uint8_t ENDPOINT_TO_HOST = 0x82;
constexpr std::uint8_t CLASS_TO_INTERFACE = 0x21;
constexpr std::uint8_t CLASS_FROM_INTERFACE = 0xA1;

// Standard requests.
constexpr std::uint8_t GET_STATUS = 0;
constexpr std::uint8_t CLEAR_FEATURE = 1;
constexpr std::uint8_t GET_DESCRIPTOR = 6;
constexpr std::uint8_t GET_CONFIGURATION = 8;
constexpr std::uint8_t SET_CONFIGURATION = 9;
constexpr std::uint8_t SET_INTERFACE = 11;

// HID class requests.
constexpr std::uint8_t GET_REPORT = 1;
constexpr std::uint8_t SET_REPORT = 9;
constexpr std::uint8_t SET_IDLE = 10;
constexpr unsigned REPORT_TYPE_INPUT = 1;
constexpr unsigned REPORT_TYPE_OUTPUT = 2;

enum DescriptorKind : unsigned {
    DEVICE = 1,
    CONFIGURATION = 2,
    STRING = 3,
    INTERFACE = 4,
    ENDPOINT = 5,
    HID = 0x21,
    HID_REPORT = 0x22,
};

constexpr std::uint8_t PACKET_SIZE = 64;
constexpr std::uint8_t POLL_INTERVAL_MS = 1;

// Indexes of string descriptors.
constexpr unsigned LANGUAGES_STRING = 0;
constexpr unsigned MAKER_STRING = 1;
constexpr unsigned PRODUCT_STRING = 2;

constexpr std::uint8_t Low(std::size_t number) {
    return number & 0xFF;
}
constexpr std::uint8_t High(std::size_t number) {
    return number >> 8 & 0xFF;
}

Bytes DeviceDescriptor(std::uint16_t vendor, std::uint16_t product, bool hasMaker) {
    return {18,
            DEVICE,
            0x10,
            0x01,  // USB 1.1: the host asks for no high-speed data
            0,
            0,
            0,
            PACKET_SIZE,  // class: see the interface
            Low(vendor),
            High(vendor),
            Low(product),
            High(product),  //
            0x00,
            0x01,
            hasMaker ? Low(MAKER_STRING) : Low(0),
            PRODUCT_STRING,  // release 1.00, maker, product
            0,
            1};  // no serial number, one configuration
}

Bytes HidDescriptor(std::size_t reportDescriptorLength) {
    return {9, HID, 0x11, 0x01, 0, 1, HID_REPORT, Low(reportDescriptorLength), High(reportDescriptorLength)};
}

Bytes ConfigurationDescriptor(std::size_t reportDescriptorLength) {
    Bytes bytes = {9, CONFIGURATION, 0, 0, 1, 1, 0, 0x80, 50,  // one interface, bus powered, 100 mA
                   9, INTERFACE,     0, 0, 1, 3, 0, 0,    0};  // one endpoint, HID, no boot protocol
    const Bytes hid = HidDescriptor(reportDescriptorLength);
    bytes.insert(bytes.end(), hid.begin(), hid.end());
    const Bytes endpoint = {7, ENDPOINT, 0x80 | INTERRUPT_ENDPOINT, 3, PACKET_SIZE, 0, POLL_INTERVAL_MS};
    bytes.insert(bytes.end(), endpoint.begin(), endpoint.end());
    bytes[2] = Low(bytes.size());
    bytes[3] = High(bytes.size());
    return bytes;
}

Bytes StringDescriptor(std::string_view text) {
    Bytes bytes = {Low(2 + 2 * text.size()), STRING};
    for (const char character : text) {
        bytes.push_back(static_cast<std::uint8_t>(character));
        bytes.push_back(0);
    }
    return bytes;
}

std::optional<Bytes> StringDescriptor(unsigned index, const BoardDescription& board) {
    switch (index) {
        case LANGUAGES_STRING:
            return Bytes{4, STRING, 0x09, 0x04};  // the only language: US English
        case MAKER_STRING:
            return StringDescriptor(board.maker);
        case PRODUCT_STRING:
            return StringDescriptor(board.name);
        default:
            return std::nullopt;
    }
}

}  // namespace

ControlRequest::ControlRequest(const std::array<std::uint8_t, 8>& bytes)
    : type(bytes[0]),
      request(bytes[1]),
      value(static_cast<std::uint16_t>(bytes[2] | bytes[3] << 8)),
      index(static_cast<std::uint16_t>(bytes[4] | bytes[5] << 8)),
      length(static_cast<std::uint16_t>(bytes[6] | bytes[7] << 8)) {}

std::optional<Bytes> UsbDevice::Control(const ControlRequest& request, const Bytes& data) {
    std::optional<Bytes> answer = Answer(request, data);
    if (answer && answer->size() > request.length) {
        answer->resize(request.length);
    }
    return answer;
}

std::optional<Bytes> UsbDevice::Answer(const ControlRequest& request, const Bytes& data) {
    const unsigned high = request.value >> 8;
    const unsigned low = request.value & 0xFF;
    switch (request.type) {
        case DEVICE_TO_HOST:
        case INTERFACE_TO_HOST:
        case ENDPOINT_TO_HOST:
            if (request.request == GET_DESCRIPTOR) {
                return Descriptor(high, low);
            }
            if (request.request == GET_CONFIGURATION) {
                return Bytes{1};
            }
            if (request.request == GET_STATUS) {
                return Bytes{0, 0};
            }
            break;
        case HOST_TO_DEVICE:
        case HOST_TO_INTERFACE:
        case HOST_TO_ENDPOINT:
            if (request.request == SET_CONFIGURATION || request.request == SET_INTERFACE ||
                request.request == CLEAR_FEATURE) {
                return Bytes{};
            }
            break;
        case CLASS_FROM_INTERFACE:
            if (request.request == GET_REPORT && high == REPORT_TYPE_INPUT) {
                return m_board.CurrentReport(static_cast<std::uint8_t>(low));
            }
            break;
        case CLASS_TO_INTERFACE:
            if (request.request == SET_IDLE) {
                return Bytes{};
            }
            if (request.request == SET_REPORT && high == REPORT_TYPE_OUTPUT && m_board.WriteReport(data)) {
                return Bytes{};
            }
            break;
    }
    return std::nullopt;
}

std::optional<Bytes> UsbDevice::Descriptor(unsigned kind, unsigned index) const {
    const BoardDescription board = m_board.Describe();
    const Bytes reportDescriptor = m_board.HidReportDescriptor();
    switch (kind) {
        case DEVICE:
            return DeviceDescriptor(m_vendor.value_or(board.vendor), board.product,
                                    !std::string_view(board.maker).empty());
        case CONFIGURATION:
            return ConfigurationDescriptor(reportDescriptor.size());
        case STRING:
            return StringDescriptor(index, board);
        case HID:
            return HidDescriptor(reportDescriptor.size());
        case HID_REPORT:
            return reportDescriptor;
        default:
            return std::nullopt;
    }
}

}  // namespace VirtualPlayer
