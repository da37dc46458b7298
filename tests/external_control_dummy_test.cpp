#include "lib/hardware/external_control_dummy.h"

#include <gtest/gtest.h>

#include <memory>

using namespace ExternalControl::Impl;

TEST(DummyPort, AnswersNothingAndIgnoresCommands) {
    const std::shared_ptr<ExternalControl::Port> port = std::make_shared<DummyPort>();
    const unsigned values[] = {1};
    port->ConfigureInput(0);
    port->ConfigureOutput(0);
    port->SetAllLevels(1);
    port->SetOutputs(values, 1);
    port->SetOutput(0, 1);
    port->SetValueCallback([](unsigned, unsigned, unsigned) {});
    EXPECT_EQ(port->GetPinCount() | port->ReadAllInputs() | port->ReadAllOutputs(), 0u);
    EXPECT_EQ(port->GetVersion() + port->GetProperties(), "");
    EXPECT_FALSE(port->IsInput(0) || port->GetInput(0) || port->IsOutput(0) || port->GetOutput(0));
    EXPECT_FALSE(port->ConfigurePulse(1, 1) || port->StartPulse(0, 1) || port->StopPulse(0) ||
                 port->SetPinFunction(0, "UART"));
}
