#include "virtual_player/board/hid_reports.h"

#include <cstddef>
#include <initializer_list>
#include <utility>

namespace VirtualPlayer {

namespace {

constexpr std::uint8_t APPLICATION_USAGE = 1;

// Item prefixes; the low two bits are the size of the data (3 means four bytes).
enum Item : std::uint8_t {
    USAGE_PAGE_16 = 0x06,
    USAGE_8 = 0x09,
    LOGICAL_MINIMUM_8 = 0x15,
    LOGICAL_MAXIMUM_8 = 0x25,
    LOGICAL_MAXIMUM_32 = 0x27,
    USAGE_MINIMUM_16 = 0x1A,
    USAGE_MAXIMUM_16 = 0x2A,
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
    for (const unsigned byte : more) {
        bytes.push_back(static_cast<std::uint8_t>(byte));
    }
}

void Append16(Bytes& bytes, Item item, unsigned value) {
    Append(bytes, {item, value & 0xFF, value >> 8});
}

Item MainItem(Direction direction) {
    return direction == Direction::INPUT ? INPUT_8 : OUTPUT_8;
}

void AppendField(Bytes& bytes, const HidField& field) {
    Append16(bytes, USAGE_PAGE_16, field.usagePage);
    Append(bytes, {REPORT_ID_8, field.report});
    Append(bytes, {LOGICAL_MINIMUM_8, 0});
    if (field.bits == 1) {
        Append(bytes, {LOGICAL_MAXIMUM_8, 1});
    } else {
        Append(bytes, {LOGICAL_MAXIMUM_32, 0xFF, 0xFF, 0xFF, 0x7F});
    }
    Append(bytes, {REPORT_SIZE_8, field.bits, REPORT_COUNT_8, field.count});
    Append16(bytes, USAGE_MINIMUM_16, field.firstUsage);
    Append16(bytes, USAGE_MAXIMUM_16, field.firstUsage + field.count - 1u);
    Append(bytes, {MainItem(field.direction), DATA_VARIABLE_ABSOLUTE});
}

bool IsOf(const HidField& field, std::uint8_t report, Direction direction) {
    return field.report == report && field.direction == direction;
}

std::size_t CountBits(std::span<const HidField> fields, std::uint8_t report, Direction direction) {
    std::size_t bits = 0;
    for (const HidField& field : fields) {
        if (IsOf(field, report, direction)) {
            bits += std::size_t{field.count} * field.bits;
        }
    }
    return bits;
}

/// Calls with (the value's index among those of the report, the bit of the value, the bit of the report).
template <class Function>
void ForEachBit(std::span<const HidField> fields, std::uint8_t report, Direction direction,
                Function function) {
    std::size_t value = 0;
    std::size_t position = 8;  // behind the report id
    for (const HidField& field : fields) {
        for (unsigned i = 0; IsOf(field, report, direction) && i < field.count; ++i, ++value) {
            for (unsigned bit = 0; bit < field.bits; ++bit) {
                function(value, bit, position++);
            }
        }
    }
}

}  // namespace

Bytes HidReportDescriptor(std::uint16_t applicationPage, std::span<const HidField> fields) {
    Bytes bytes;
    Append16(bytes, USAGE_PAGE_16, applicationPage);
    Append(bytes, {USAGE_8, APPLICATION_USAGE, COLLECTION_8, COLLECTION_APPLICATION});
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const auto [report, direction] = std::pair(fields[i].report, fields[i].direction);
        AppendField(bytes, fields[i]);
        const bool isLast = i + 1 == fields.size() || !IsOf(fields[i + 1], report, direction);
        const unsigned padding = (8 - CountBits(fields, report, direction) % 8) % 8;
        if (isLast && padding != 0) {
            Append(bytes, {REPORT_SIZE_8, padding, REPORT_COUNT_8, 1, MainItem(direction),
                           CONSTANT_VARIABLE_ABSOLUTE});
        }
    }
    Append(bytes, {END_COLLECTION});
    return bytes;
}

std::size_t ReportLength(std::span<const HidField> fields, std::uint8_t report, Direction direction) {
    const std::size_t bits = CountBits(fields, report, direction);
    return bits == 0 ? 0 : (report == 0 ? 0 : 1) + (bits + 7) / 8;
}

Bytes PackReport(std::span<const HidField> fields, std::uint8_t report,
                 std::span<const std::uint32_t> words) {
    Bytes bytes(ReportLength(fields, report, Direction::INPUT));
    bytes[0] = report;
    ForEachBit(fields, report, Direction::INPUT, [&](std::size_t value, unsigned bit, std::size_t position) {
        bytes[position / 8] |= static_cast<std::uint8_t>((words[value] >> bit & 1) << position % 8);
    });
    return bytes;
}

std::optional<std::vector<std::uint32_t>> UnpackReport(std::span<const HidField> fields, const Bytes& bytes) {
    const std::uint8_t report = bytes.empty() ? 0 : bytes[0];
    const std::size_t length = ReportLength(fields, report, Direction::OUTPUT);
    if (length == 0 || bytes.size() != length) {
        return std::nullopt;
    }
    std::vector<std::uint32_t> words;
    ForEachBit(fields, report, Direction::OUTPUT, [&](std::size_t value, unsigned bit, std::size_t position) {
        words.resize(value + 1);
        words[value] |= (bytes[position / 8] >> position % 8 & 1u) << bit;
    });
    return words;
}

}  // namespace VirtualPlayer
