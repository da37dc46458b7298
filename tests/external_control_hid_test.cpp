// A HID port against a board that comes, goes and keeps silent as the test wants.

#include "lib/hardware/external_control_hid.h"

#include <gtest/gtest.h>

#include <string>

#include "lib/platform/posix_helpers.h"
#include "tests/modelled_board.h"

using namespace ExternalControl;
using namespace ExternalControl::Impl;

namespace {

using Values = ModelledBoard::Values;

void Ignore(unsigned, unsigned, unsigned) {}

/// A port with inputs, outputs and directions.
std::shared_ptr<PortOnHid> OpenPort() {
    PortOnHid::Descriptor descriptor;
    descriptor.hid_device = ModelledBoard::NODE_NUMBER;
    descriptor.capabilities = CAPABILITY_BOTH;
    descriptor.application = APPLICATION_TOUCH_BOARD;
    descriptor.inputField = 0;
    descriptor.outputField = ModelledBoard::OUTPUTS;
    descriptor.directionField = ModelledBoard::DIRECTIONS;
    descriptor.count = ModelledBoard::PINS;
    descriptor.bitsPerField = 32;
    descriptor.location = ModelledBoard::LOCATION;
    return PortOnHid::Open(descriptor, Ignore, {});
}

class PortOnModelledBoard : public testing::Test {
protected:
    ModelledBoard m_board;
    PollThread m_pollThread;
    KestrelObjectGlobals m_objectGlobals;
};

TEST_F(PortOnModelledBoard, RestoresDirectionsThenOutputsUpToOneThatTheBoardRefuses) {
    auto port = OpenPort();
    port->ConfigureOutput(1);
    port->ConfigureOutput(3);
    for (const unsigned pin : {3U, 1U, ModelledBoard::PINS, 0U}) {
        try {
            port->SetOutput(pin, 10 + pin);
        } catch (const ErrnoException& e) {
            EXPECT_EQ(pin, ModelledBoard::PINS);
        }
    }
    testing::internal::CaptureStderr();
    m_board.Unplug();
    m_board.Plug();
    m_board.WaitUntil([](const auto& device) { return device.refused == 1; });
    port.reset();  // waits for the report
    EXPECT_EQ(m_board.GetDevice().sent, (Values{10, 11, 0, 13}));
    EXPECT_EQ(m_board.GetDevice().directions, (Values{0, 1, 0, 1}));
    EXPECT_NE(testing::internal::GetCapturedStderr().find("failed: SubmitUsage: Invalid argument"),
              std::string::npos);
}

}  // namespace
