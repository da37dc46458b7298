#include "lib/hardware/external_control_hid_finder.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <stdexcept>

#include "lib/hardware/board_identity.h"
#include "lib/platform/assertion.h"
#include "lib/player/usb_bus_order.h"

namespace ExternalControl::Impl {
namespace {

using Descriptors = std::vector<DescriptorPtr>;

constexpr unsigned NODE_COUNT = 16;
constexpr std::uint16_t VENDORS[] = {0x084F, 0x2877};

// Usage pages of a touch board's fields.
constexpr std::uint32_t PAGE_TOUCH_GPIO = 0x00;
constexpr std::uint32_t PAGE_TOUCH_DIAGNOSTICS = 0x01;
constexpr std::uint32_t PAGE_TOUCH_SETUP = 0x02;
constexpr std::uint32_t PAGE_TOUCH_LED_SETUP = 0x40;
constexpr std::uint32_t PAGE_TOUCH_LED = 0x41;

constexpr std::uint32_t PAGE_EXPANDER_DIP = 0x80;
constexpr std::uint32_t PAGE_LIGHT_CONTROL = 0x40;

constexpr std::uint32_t APPLICATIONS[] = {APPLICATION_EXPANDER, APPLICATION_TOUCH_BOARD,
                                          APPLICATION_LIGHT_CONTROLLER};

/// The last of the device's applications that is one of ours.
std::optional<std::uint32_t> FindApplication(const HidDevice& device, unsigned applicationCount) {
    std::optional<std::uint32_t> found;
    for (unsigned index = 0; index < applicationCount; ++index) {
        const std::optional<std::uint32_t> application = device.GetApplication(index);
        if (std::find(std::begin(APPLICATIONS), std::end(APPLICATIONS), application) !=
            std::end(APPLICATIONS)) {
            found = application;
        }
    }
    return found;
}

/// The Descriptor that answers the identity request of a touch board; null when the board has none.
DescriptorPtr FindSetupDescriptor(const Descriptors& descriptors, std::uint32_t deviceNumber) {
    const auto found = std::find_if(descriptors.begin(), descriptors.end(), [&](const DescriptorPtr& d) {
        return d->application == APPLICATION_TOUCH_BOARD && d->hid_device == deviceNumber &&
               d->GetUsagePage() == PAGE_TOUCH_SETUP;
    });
    return found == descriptors.end() ? nullptr : *found;
}

/// What a touch board is asked for its model through, and what it answers in.
struct IdentityPair {
    DescriptorPtr identDesc;
    DescriptorPtr setupDesc;
};

std::vector<IdentityPair> FindIdentityPairs(const Descriptors& descriptors) {
    std::vector<IdentityPair> pairs;
    for (const DescriptorPtr& identDesc : descriptors) {
        if (identDesc->application != APPLICATION_TOUCH_BOARD ||
            identDesc->GetUsagePage() != PAGE_TOUCH_LED_SETUP) {
            continue;
        }
        if (const DescriptorPtr setupDesc = FindSetupDescriptor(descriptors, identDesc->hid_device)) {
            pairs.push_back({identDesc, setupDesc});
        }
    }
    return pairs;
}

BoardAnswer AskForModel(const IdentityPair& pair) {
    const BoardIdentity identity(pair.identDesc, pair.setupDesc);
    return {identity.GetModelCode(), identity.GetHeaderValue()};
}

/// Counts the boards of one application: a field moves the count on when its board is not the one recorded
/// last.
class BoardIndex {
public:
    /// @param isRecorded  whether the field's board is recorded
    /// @return the index of the field's board
    unsigned Count(std::uint32_t deviceNumber, bool isRecorded) {
        if (m_recorded && *m_recorded != deviceNumber) {
            ++m_index;
        }
        if (isRecorded) {
            m_recorded = deviceNumber;
        }
        return m_index;
    }

private:
    unsigned m_index = 0;
    std::optional<std::uint32_t> m_recorded;
};

std::string FormatPortName(const char* application, unsigned boardIndex, const char* report) {
    return strprintf("%s-%u-%s", application, boardIndex, report);
}

/// @return null for a field that is no port
const char* TouchBoardReportName(std::uint32_t usagePage) {
    switch (usagePage) {
        case PAGE_TOUCH_GPIO:
            return "GPIO";
        case PAGE_TOUCH_DIAGNOSTICS:
            return "DIAGNOSTICS";
        case PAGE_TOUCH_LED_SETUP:
            return "LED-SETUP";
        case PAGE_TOUCH_LED:
            return "LED";
        default:
            return nullptr;
    }
}

/// Whether a field of a touch board records its board for the count. Deliberately not the fields of these
/// three pages, although they move the count on: so does the next field of the same board then, once more.
/// The ports of a second board, in the order GPIO, DIAGNOSTICS, LED, have the indexes 1, 2 and 2. Names in
/// the field rely on it.
bool RecordsTouchBoard(std::uint32_t usagePage) {
    return usagePage != PAGE_TOUCH_GPIO && usagePage != PAGE_TOUCH_LED_SETUP && usagePage != PAGE_TOUCH_LED;
}

}  // namespace

std::optional<std::uint32_t> BitsPerField(std::int32_t logicalMinimum, std::int32_t logicalMaximum) {
    struct Range {
        std::int32_t minimum;
        std::int32_t maximum;
        std::uint32_t bits;
    };
    static constexpr Range RANGES[] = {
        {0, 1, 1},   {0, 0x7FFFFFFF, 32}, {0, 32767, 16},
        {0, 127, 8}, {1, 32, 8},  // odd, but there are boards that say so
    };
    for (const Range& range : RANGES) {
        if (range.minimum == logicalMinimum && range.maximum == logicalMaximum) {
            return range.bits;
        }
    }
    return std::nullopt;
}

void Finder::Scan() {
    for (std::uint32_t deviceNumber = 0; deviceNumber < NODE_COUNT; ++deviceNumber) {
        std::optional<HidDevice> device = HidDevice::OpenToLook(deviceNumber);
        if (!device) {
            continue;
        }
        const std::size_t known = m_descriptors.size();
        ScanDevice(*device, deviceNumber);
        if (m_descriptors.size() != known) {
            m_devices[deviceNumber] = std::make_shared<const HidDevice>(std::move(*device));
        }
    }
    Sort();
}

void Finder::AskForModels() {
    for (const IdentityPair& pair : FindIdentityPairs(m_descriptors)) {
        OnIdentified(pair.setupDesc->hid_device, AskForModel(pair));
    }
}

void Finder::FindModels() {
    for (const IdentityPair& pair : FindIdentityPairs(m_descriptors)) {
        const std::uint32_t deviceNumber = pair.setupDesc->hid_device;
        const auto remembered = ReadBoardAnswer(*GetDevice(deviceNumber), *pair.setupDesc);
        OnIdentified(deviceNumber, remembered ? *remembered : AskForModel(pair));
    }
}

void Finder::ScanDevice(const HidDevice& device, std::uint32_t deviceNumber) {
    const hiddev_devinfo info = device.GetDeviceInfo();
    const auto vendor = static_cast<std::uint16_t>(info.vendor);
    if (std::find(std::begin(VENDORS), std::end(VENDORS), vendor) == std::end(VENDORS)) {
        return;
    }
    const auto application = FindApplication(device, info.num_applications);
    if (!application) {
        return;
    }

    Descriptor common;
    common.hid_device = deviceNumber;
    common.application = *application;
    if (const auto place = UsbBusOrder::Find(strprintf("usb/hiddev%u", deviceNumber))) {
        common.position = place->position;
        common.location = place->location;
        common.nodeName = place->nodeName;
    }
    try {
        ScanReports(device, HID_REPORT_TYPE_INPUT, common);
        ScanReports(device, HID_REPORT_TYPE_OUTPUT, common);
    } catch (const std::exception&) {
        // A board that was unplugged meanwhile, or that is broken, must not keep the other boards from being
        // found.
    }
}

void Finder::ScanReports(const HidDevice& device, std::uint32_t reportType, const Descriptor& common) {
    std::uint32_t wanted = HID_REPORT_ID_FIRST;
    while (const auto report = device.FindReport(reportType, wanted)) {
        for (std::uint32_t index = 0; index < report->num_fields; ++index) {
            ScanField(device, device.GetFieldInfo({reportType, report->report_id, index}), common);
        }
        wanted = report->report_id | HID_REPORT_ID_NEXT;
    }
}

void Finder::ScanField(const HidDevice& device, const hiddev_field_info& field, const Descriptor& common) {
    const auto bits = BitsPerField(field.logical_minimum, field.logical_maximum);
    if (!bits) {
        return;
    }
    const auto usageCode = device.FindUsageCode({field.report_type, field.report_id, field.field_index});
    if (!usageCode) {
        return;
    }

    Descriptor found = common;
    found.reportId = field.report_id;
    found.usageBase = *usageCode;
    found.count = field.maxusage;
    found.bitsPerField = *bits;
    switch (field.report_type) {
        case HID_REPORT_TYPE_INPUT:
            found.capabilities = CAPABILITY_INPUT;
            found.inputField = field.field_index;
            break;
        case HID_REPORT_TYPE_OUTPUT:
            if ((*usageCode & DIRECTION_USAGE) != 0) {
                found.capabilities = CAPABILITY_BOTH;
                found.directionField = field.field_index;
                found.usageBase = *usageCode & ~DIRECTION_USAGE;
            } else {
                found.capabilities = CAPABILITY_OUTPUT;
                found.outputField = field.field_index;
            }
            break;
        default:
            throw std::runtime_error("Unrecognised report type");
    }
    OnFound(found);
}

void Finder::OnFound(const Descriptor& found) {
    PLATFORM_ASSERT(found.capabilities >= CAPABILITY_INPUT && found.capabilities <= CAPABILITY_BOTH);
    const auto known = std::find_if(m_descriptors.begin(), m_descriptors.end(), [&](const DescriptorPtr& d) {
        return d->hid_device == found.hid_device && d->application == found.application &&
               d->reportId == found.reportId && d->usageBase == found.usageBase && d->count == found.count;
    });
    if (known == m_descriptors.end()) {
        m_descriptors.push_back(std::make_shared<Descriptor>(found));
        return;
    }
    Descriptor& merged = **known;
    switch (found.capabilities) {
        case CAPABILITY_INPUT:
            merged.inputField = found.inputField;
            break;
        case CAPABILITY_OUTPUT:
            merged.outputField = found.outputField;
            break;
        case CAPABILITY_BOTH:
            merged.directionField = found.directionField;
            break;
    }
    merged.capabilities |= found.capabilities;
}

void Finder::OnIdentified(std::uint32_t deviceNumber, const BoardAnswer& answer) {
    for (const DescriptorPtr& descriptor : m_descriptors) {
        if (descriptor->hid_device == deviceNumber && descriptor->application == APPLICATION_TOUCH_BOARD) {
            descriptor->modelCode = answer.modelCode;
            descriptor->headerValue = answer.headerValue;
        }
    }
}

void Finder::Sort() {
    std::stable_sort(m_descriptors.begin(), m_descriptors.end(),
                     [](const DescriptorPtr& a, const DescriptorPtr& b) {
                         if (a->position.empty() || b->position.empty()) {
                             return !a->position.empty() && b->position.empty();
                         }
                         return a->position < b->position;
                     });
}

AvailablePorts::AvailablePorts(const Descriptors& descriptors) {
    BoardIndex expanders;
    BoardIndex touchBoards;
    BoardIndex lightControllers;
    // Where two Descriptors have the same name, the first keeps it.
    for (const DescriptorPtr& descriptor : descriptors) {
        const std::uint32_t device = descriptor->hid_device;
        const std::uint32_t page = descriptor->GetUsagePage();
        switch (descriptor->application) {
            case APPLICATION_EXPANDER: {
                const char* report = page == PAGE_EXPANDER_DIP ? "DIP" : "GPIO";
                m_ports.emplace(FormatPortName("Expander", expanders.Count(device, true), report),
                                descriptor);
                break;
            }
            case APPLICATION_LIGHT_CONTROLLER: {
                const char* report = page == PAGE_LIGHT_CONTROL ? "CONTROL" : "DIAGNOSTICS";
                m_ports.emplace(
                    FormatPortName("LightController", lightControllers.Count(device, true), report),
                    descriptor);
                break;
            }
            case APPLICATION_TOUCH_BOARD: {
                const unsigned index = touchBoards.Count(device, RecordsTouchBoard(page));
                if (const char* report = TouchBoardReportName(page)) {
                    m_ports.emplace(FormatPortName("TouchBoard", index, report), descriptor);
                }
                break;
            }
            default:
                throw std::runtime_error("Unknown application id!");
        }
    }
}

DescriptorPtr AvailablePorts::Find(const std::string& name) const {
    const auto found = m_ports.find(name);
    return found == m_ports.end() ? nullptr : found->second;
}

}  // namespace ExternalControl::Impl
