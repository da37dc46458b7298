#include "virtual_player/board/hid_layout.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "virtual_player/board/hid_reports.h"

namespace VirtualPlayer {
namespace {

TEST(HidLayout, IsWhatTheDescriptorWasMadeOf) {
    constexpr HidField FIELDS[] = {
        {1, Direction::INPUT, 0xFF00, 1, 11, 1},
        {2, Direction::INPUT, 0xFF01, 1, 29, 32},
        {4, Direction::OUTPUT, 0xFF40, 1, 3, 32},
    };
    const Bytes descriptor = HidReportDescriptor(0xFF77, FIELDS);
    const HidLayout layout = ParseHidReportDescriptor(descriptor);
    EXPECT_EQ(0xFF770001, layout.application);
    for (const HidField& field : FIELDS) {
        EXPECT_EQ(ReportLength(FIELDS, field.report, field.direction),
                  ReportLength(layout.fields, field.report, field.direction));
    }
    // Pushed and popped items, 16-bit counts, a report without a number.
    const Bytes other = {0x06, 0x88, 0xFF, 0x09, 0x01, 0xA1, 0x01, 0x75, 0x08, 0x96, 0x00, 0x01,
                         0xA4, 0x95, 0x02, 0x09, 0x05, 0x91, 0x02, 0xB4, 0x81, 0x02, 0xC0};
    const HidLayout unnumbered = ParseHidReportDescriptor(other);
    EXPECT_EQ(2u, ReportLength(unnumbered.fields, 0, Direction::OUTPUT));
    EXPECT_EQ(256u, ReportLength(unnumbered.fields, 0, Direction::INPUT));

    for (const Bytes& broken : {Bytes{0x06, 0x77}, Bytes{0x27, 1, 2, 3}, Bytes{0xFE, 0, 0}, Bytes{0xB4},
                                Bytes{0x75, 33, 0x95, 1, 0x81, 2}, Bytes{0x75, 8, 0x96, 0, 0x70, 0x81, 2}}) {
        EXPECT_THROW(ParseHidReportDescriptor(broken), std::invalid_argument);
    }
}

}  // namespace
}  // namespace VirtualPlayer
