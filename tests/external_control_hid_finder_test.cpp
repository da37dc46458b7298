// Describing, ordering and naming ports, without a device.

#include "lib/hardware/external_control_hid_finder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "lib/hardware/board_identity.h"

using namespace ExternalControl::Impl;

namespace {

Descriptor Field(std::uint32_t device, std::uint32_t application, std::uint32_t page,
                 std::uint32_t capabilities = CAPABILITY_INPUT, std::uint32_t reportId = 1) {
    Descriptor field;
    field.hid_device = device;
    field.application = application;
    field.usageBase = 0xFF000001 | page << 16;
    field.capabilities = capabilities;
    field.reportId = reportId;
    field.count = 8;
    return field;
}

std::vector<DescriptorPtr> MakeDescriptors(const std::vector<Descriptor>& fields) {
    std::vector<DescriptorPtr> descriptors;
    descriptors.reserve(fields.size());
    for (const auto& field : fields) {
        descriptors.push_back(std::make_shared<Descriptor>(field));
    }
    return descriptors;
}

}  // namespace

TEST(Finder, LogicalRangesGiveTheWidth) {
    EXPECT_EQ(BitsPerField(0, 1), 1u);
    EXPECT_EQ(BitsPerField(0, 127), 8u);
    EXPECT_EQ(BitsPerField(1, 32), 8u);
    EXPECT_EQ(BitsPerField(0, 32767), 16u);
    EXPECT_EQ(BitsPerField(0, 0x7FFFFFFF), 32u);
    for (const auto& [minimum, maximum] : {std::pair{0, 255}, {1, 127}, {-1, 1}, {0, -1}}) {
        EXPECT_FALSE(BitsPerField(minimum, maximum)) << minimum << " " << maximum;
    }
}

TEST(Finder, FieldsOfOneReportMakeOnePort) {
    Finder finder;
    Descriptor input = Field(2, APPLICATION_EXPANDER, 0x01, CAPABILITY_INPUT, 7);
    input.inputField = 0;
    Descriptor output = Field(2, APPLICATION_EXPANDER, 0x01, CAPABILITY_OUTPUT, 7);
    output.outputField = 3;
    Descriptor direction = Field(2, APPLICATION_EXPANDER, 0x01, CAPABILITY_BOTH, 7);
    direction.directionField = 4;
    for (const auto& field : {input, output, Field(2, APPLICATION_EXPANDER, 0x01, CAPABILITY_INPUT, 8),
                              Field(3, APPLICATION_EXPANDER, 0x01, CAPABILITY_OUTPUT, 7), direction}) {
        finder.OnFound(field);
    }
    ASSERT_EQ(finder.GetDescriptors().size(), 3u);
    EXPECT_EQ(finder.GetDescriptors()[0]->ToString(),
              "ID=7, INPUT=0, OUTPUT=3, DIRECTION=4, usage=ff010001, count=8, device=2");
    EXPECT_EQ(finder.GetDescriptors()[2]->ToString(),
              "ID=7, OUTPUT=4294967295, usage=ff010001, count=8, device=3");
    for (const std::uint32_t knownOrNew : {2, 4}) {
        EXPECT_EXIT(finder.OnFound(Field(knownOrNew, APPLICATION_EXPANDER, 0x01, 4, 7)),
                    testing::KilledBySignal(SIGABRT), "");
    }
}

TEST(Finder, SortsByPositionKeepingTheFieldsOfADeviceTogether) {
    Finder finder;
    const UsbPosition positions[] = {{}, {1, 10}, {}, {1, 2}, {1, 10}};
    for (std::uint32_t device = 0; device < std::size(positions); ++device) {
        for (std::uint32_t page : {1, 2}) {
            Descriptor field = Field(device, APPLICATION_EXPANDER, page);
            field.position = positions[device];
            finder.OnFound(field);
        }
    }
    finder.Sort();
    std::string order;
    for (const auto& descriptor : finder.GetDescriptors()) {
        order +=
            std::to_string(descriptor->hid_device) + "." + std::to_string(descriptor->GetUsagePage()) + " ";
    }
    EXPECT_EQ(order, "3.1 3.2 1.1 1.2 4.1 4.2 0.1 0.2 2.1 2.2 ");
}

TEST(Finder, WhatABoardAnswersIsKnownOfAllItsPortsOnly) {
    Finder finder;
    for (const std::uint32_t device : {5, 3}) {
        finder.OnFound(Field(device, APPLICATION_TOUCH_BOARD, 0x01));
        finder.OnFound(Field(device, APPLICATION_TOUCH_BOARD, 0x02));
    }
    finder.OnIdentified(5, {480, 90});
    for (const auto& descriptor : finder.GetDescriptors()) {
        const bool isIdentified = descriptor->hid_device == 5;
        EXPECT_EQ(descriptor->modelCode, isIdentified ? 480u : MODEL_UNKNOWN);
        EXPECT_EQ(descriptor->headerValue, isIdentified ? 90u : 0u);
    }
}

TEST(AvailablePorts, NamesPortsByApplicationBoardAndReport) {
    auto descriptors = MakeDescriptors({
        Field(5, APPLICATION_TOUCH_BOARD, 0x00),
        Field(5, APPLICATION_TOUCH_BOARD, 0x01),
        Field(5, APPLICATION_TOUCH_BOARD, 0x02),
        Field(5, APPLICATION_TOUCH_BOARD, 0x40),
        Field(5, APPLICATION_TOUCH_BOARD, 0x41),
        Field(2, APPLICATION_EXPANDER, 0x80),
        Field(2, APPLICATION_EXPANDER, 0x00),
        Field(2, APPLICATION_EXPANDER, 0x00, CAPABILITY_INPUT, 2),
        Field(1, APPLICATION_LIGHT_CONTROLLER, 0x40),
        Field(4, APPLICATION_EXPANDER, 0x80),
        Field(1, APPLICATION_LIGHT_CONTROLLER, 0x01),
        // The first field of the second touch board moves the count on without recording the board.
        Field(3, APPLICATION_TOUCH_BOARD, 0x00),
        Field(3, APPLICATION_TOUCH_BOARD, 0x01),
        Field(3, APPLICATION_TOUCH_BOARD, 0x41),
    });
    const AvailablePorts ports(descriptors);

    const std::pair<const char*, int> names[] = {
        {"TouchBoard-0-GPIO", 0},
        {"touchboard-0-diagnostics", 1},
        {"TOUCHBOARD-0-LED-SETUP", 3},
        {"TouchBoard-0-LED", 4},
        {"Expander-0-DIP", 5},
        {"Expander-0-GPIO", 6},
        {"LightController-0-CONTROL", 8},
        {"LightController-0-DIAGNOSTICS", 10},
        {"Expander-1-DIP", 9},
        {"TouchBoard-1-GPIO", 11},
        {"TouchBoard-2-DIAGNOSTICS", 12},
        {"TouchBoard-2-LED", 13},
    };
    for (const auto& [name, index] : names) {
        EXPECT_EQ(ports.Find(name), descriptors[index]) << name;
    }
    for (const char* name :
         {"TouchBoard-1-LED", "TouchBoard-0-LED ", "TouchBoard-0", "Expander-1-GPIO", ""}) {
        EXPECT_EQ(ports.Find(name), nullptr) << name;
    }

    EXPECT_THROW(AvailablePorts(MakeDescriptors({Field(0, 0x00010002, 0x01)})), std::runtime_error);
}
