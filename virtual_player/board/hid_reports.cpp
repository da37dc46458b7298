#include "virtual_player/board/hid_reports.h"

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <stdexcept>

namespace VirtualBoard {

namespace {

enum class Direction { INPUT, OUTPUT };

struct ReportLayout {
    ReportId id;
    const char* portName;
    Direction direction;
    std::uint16_t usagePage;
    std::uint8_t count;
    std::uint8_t bits;
};

// The host tells the fields apart by the low byte of the usage page.
constexpr ReportLayout REPORTS[] = {
    {ReportId::GPIO, "GPIO", Direction::INPUT, 0xFF00, BUTTON_COUNT, 1},
    {ReportId::DIAGNOSTICS, "DIAGNOSTICS", Direction::INPUT, 0xFF01, DIAGNOSTICS_WORDS, 32},
    {ReportId::IDENTITY, "", Direction::INPUT, 0xFF02, IDENTITY_WORDS, 32},
    {ReportId::LED_SETUP, "LED-SETUP", Direction::OUTPUT, 0xFF40, LED_SETUP_WORDS, 32},
    {ReportId::LED, "LED", Direction::OUTPUT, 0xFF41, BUTTON_COUNT, 32},
};

constexpr std::uint16_t APPLICATION_PAGE = 0xFF77;
constexpr std::uint8_t APPLICATION_USAGE = 1;
constexpr std::uint8_t FIRST_USAGE = 1;

// Item prefixes; the low two bits are the size of the data (3 means four bytes).
enum Item : std::uint8_t {
    USAGE_PAGE_16 = 0x06,
    USAGE_8 = 0x09,
    LOGICAL_MINIMUM_8 = 0x15,
    LOGICAL_MAXIMUM_8 = 0x25,
    LOGICAL_MAXIMUM_32 = 0x27,
    USAGE_MINIMUM_8 = 0x19,
    USAGE_MAXIMUM_8 = 0x29,
    REPORT_SIZE_8 = 0x75,
    INPUT_8 = 0x81,
    REPORT_ID_8 = 0x85,
    OUTPUT_8 = 0x91,
    REPORT_COUNT_8 = 0x95,
    COLLECTION_8 = 0xA1,
    END_COLLECTION = 0xC0,
};
constexpr std::uint8_t COLLECTION_APPLICATION = 1;
constexpr std::uint8_t DATA_VARIABLE_ABSOLUTE = 2;
constexpr std::uint8_t CONSTANT_VARIABLE_ABSOLUTE = 3;

void Append(Bytes& bytes, std::initializer_list<unsigned> more) {
    for (const unsigned byte : more)
        bytes.push_back(static_cast<std::uint8_t>(byte));
}

const ReportLayout* FindLayout(std::uint8_t id, Direction direction) {
    for (const ReportLayout& layout : REPORTS) {
        if (static_cast<std::uint8_t>(layout.id) == id && layout.direction == direction)
            return &layout;
    }
    return nullptr;
}

void AppendField(Bytes& bytes, const ReportLayout& layout) {
    const unsigned page = layout.usagePage;
    const Item main = layout.direction == Direction::INPUT ? INPUT_8 : OUTPUT_8;
    Append(bytes, {USAGE_PAGE_16, page & 0xFF, page >> 8, REPORT_ID_8, static_cast<unsigned>(layout.id)});
    Append(bytes, {LOGICAL_MINIMUM_8, 0});
    if (layout.bits == 1)
        Append(bytes, {LOGICAL_MAXIMUM_8, 1});
    else
        Append(bytes, {LOGICAL_MAXIMUM_32, 0xFF, 0xFF, 0xFF, 0x7F});
    Append(bytes, {REPORT_SIZE_8, layout.bits, REPORT_COUNT_8, layout.count});
    Append(bytes, {USAGE_MINIMUM_8, FIRST_USAGE, USAGE_MAXIMUM_8, FIRST_USAGE + layout.count - 1u});
    Append(bytes, {main, DATA_VARIABLE_ABSOLUTE});
    const unsigned padding = (8 - layout.bits * layout.count % 8) % 8;
    if (padding != 0)
        Append(bytes, {REPORT_SIZE_8, padding, REPORT_COUNT_8, 1, main, CONSTANT_VARIABLE_ABSOLUTE});
}

template <class Words>
Words ReadWords(const Bytes& report) {
    Words words{};
    for (std::size_t i = 0; i < words.size() * 4; ++i)
        words[i / 4] |= static_cast<std::uint32_t>(report[1 + i]) << (8 * (i % 4));
    return words;
}

}  // namespace

Bytes HidReportDescriptor(std::optional<ReportId> leftOut) {
    Bytes bytes;
    Append(bytes, {USAGE_PAGE_16, APPLICATION_PAGE & 0xFF, APPLICATION_PAGE >> 8});
    Append(bytes, {USAGE_8, APPLICATION_USAGE, COLLECTION_8, COLLECTION_APPLICATION});
    for (const ReportLayout& layout : REPORTS) {
        if (layout.id != leftOut)
            AppendField(bytes, layout);
    }
    Append(bytes, {END_COLLECTION});
    return bytes;
}

ReportId FindReport(const std::string& name) {
    for (const ReportLayout& layout : REPORTS) {
        if (name == layout.portName)
            return layout.id;
    }
    throw std::invalid_argument("no report " + name);
}

Bytes PackReport(const InputReport& report) {
    const std::uint8_t id = static_cast<std::uint8_t>(report.id);
    const unsigned bits = FindLayout(id, Direction::INPUT)->bits;
    Bytes bytes(1 + (bits * report.words.size() + 7) / 8);
    bytes[0] = id;
    for (std::size_t i = 0; i < report.words.size(); ++i) {
        for (unsigned bit = 0; bit < bits; ++bit) {
            const std::size_t position = i * bits + bit;
            bytes[1 + position / 8] |=
                static_cast<std::uint8_t>((report.words[i] >> bit & 1) << position % 8);
        }
    }
    return bytes;
}

bool WriteReport(TouchBoardModel& board, const Bytes& report) {
    const ReportLayout* layout = report.empty() ? nullptr : FindLayout(report[0], Direction::OUTPUT);
    if (layout == nullptr || report.size() != 1 + layout->count * 4u)
        return false;
    if (layout->id == ReportId::LED_SETUP)
        board.WriteLedSetup(ReadWords<LedSetupWords>(report));
    else
        board.WriteLeds(ReadWords<ButtonWords>(report));
    return true;
}

}  // namespace VirtualBoard
