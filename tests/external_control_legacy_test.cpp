// The flat port's map, over ports that record their commands.

#include "lib/hardware/external_control_legacy.h"

#include <gmock/gmock.h>

#include <functional>
#include <map>
#include <stdexcept>
#include <vector>

#include "lib/platform/string_operations.h"

using namespace ExternalControl;
using ExternalControl::Impl::LegacyPort;

namespace {

// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): nothing derives from it
struct SubPort final : Port {
    unsigned GetPinCount() override { return 32; }
    std::string GetVersion() override { return {}; }
    void ConfigureInput(unsigned pin) override { log += strprintf("in %u;", pin); }
    bool IsInput(unsigned) override { return false; }
    bool GetInput(unsigned pin) override { return (levels >> pin & 1) != 0; }
    unsigned ReadAllInputs() override { return levels; }
    void ConfigureOutput(unsigned pin) override { log += strprintf("out %u;", pin); }
    bool IsOutput(unsigned) override { return false; }
    bool GetOutput(unsigned pin) override { return (~levels >> pin & 1) != 0; }
    unsigned ReadAllOutputs() override { return ~levels; }
    void SetAllLevels(unsigned mask) override { log += strprintf("all 0x%X;", mask); }
    void SetOutputs(const unsigned*, unsigned count) override { log += strprintf("first %u;", count); }
    void SetOutput(unsigned pin, unsigned value) override { log += strprintf("set %u %u;", pin, value); }

    InputCallback input;
    std::string log;
    unsigned levels = 0;  // of the inputs; the outputs have the opposite ones
};

constexpr const char* MAIN = "Vantora";
constexpr const char* GPIO = "Expander-GPIO";
constexpr const char* DIP = "Expander-DIP";

}  // namespace

class LegacyPortTest : public testing::Test {
protected:
    std::shared_ptr<Port> Open(const std::string& name, InputCallback input, const LostCallback&) {
        m_order += name + " ";
        if (name == m_missing) {
            throw std::runtime_error("External control port not found");
        }
        auto subPort = std::make_shared<SubPort>();
        subPort->input = std::move(input);
        m_subPorts[name] = subPort;
        return subPort;
    }

    std::shared_ptr<SubPort> Get(const char* name) { return m_subPorts[name].lock(); }

    std::string m_order, m_missing;
    std::map<std::string, std::weak_ptr<SubPort>> m_subPorts;
    const LegacyPort::Opener m_opener = std::bind_front(&LegacyPortTest::Open, this);
};

TEST_F(LegacyPortTest, OpensConfiguresAndCommandsItsSubPorts) {
    m_missing = DIP;
    EXPECT_THROW(LegacyPort({}, m_opener), std::runtime_error);
    EXPECT_EQ(m_order, "Vantora Expander-GPIO Expander-DIP ");
    EXPECT_TRUE(!Get(MAIN) && !Get(GPIO));

    m_missing = "";
    LegacyPort port({}, m_opener);
    port.SetAllLevels(0xFFFFFFFF);
    port.SetOutputs(nullptr, 23);
    for (unsigned pin = 0; pin < 32; ++pin) {
        port.SetOutput(pin, 9);
    }
    EXPECT_EQ(Get(MAIN)->log, "in 12;out 10;all 0x400;first 23;set 10 9;");
    EXPECT_EQ(Get(GPIO)->log,
              "in 0;in 1;in 8;in 9;in 10;in 11;in 12;in 13;in 14;in 15;in 16;in 17;"
              "out 2;out 3;out 4;out 5;out 6;out 7;all 0xFC;first 23;"
              "set 2 9;set 3 9;set 4 9;set 5 9;set 6 9;set 7 9;");
    EXPECT_EQ(Get(DIP)->log, "in 0;in 1;in 2;in 3;in 4;in 5;in 6;in 7;");
    EXPECT_THROW(Get(MAIN)->input(12, 1, 1), std::bad_function_call);
}

TEST_F(LegacyPortTest, ReadsThePinsOfItsSubPorts) {
    std::vector<unsigned> pins;
    LegacyPort port(
        [&](unsigned pin, unsigned v, unsigned w) { pins.push_back(v == 6 && w == 32 ? pin : 99); },
        m_opener);
    for (const char* subPort : {MAIN, GPIO, DIP}) {
        for (unsigned pin = 0; pin < 32; ++pin) {
            Get(subPort)->input(pin, 6, 32);
        }
    }
    EXPECT_EQ(pins, (std::vector<unsigned>{12, 10, 11, 0,  1,  2,  3,  4,  5,  6, 7,
                                           8,  9,  13, 14, 15, 16, 17, 18, 19, 20}));

    const auto mask = [&port](bool (LegacyPort::*ask)(unsigned)) {
        unsigned answers = 0;
        for (unsigned pin = 0; pin < 32; ++pin) {
            answers |= unsigned{(port.*ask)(pin)} << pin;
        }
        return answers;
    };
    Get(MAIN)->levels = 0xFFFFFBFF;
    Get(GPIO)->levels = 0x3A5A5;
    Get(DIP)->levels = 0x10B;
    // Pins 6 to 9 are not in the mask of the inputs, and bits beyond the switches are.
    EXPECT_EQ(mask(&LegacyPort::GetInput), 0x177A5u);
    EXPECT_EQ(port.ReadAllInputs(), 0x217425u);
    EXPECT_EQ(mask(&LegacyPort::GetOutput), 0x2C0400u);
    EXPECT_EQ(port.ReadAllOutputs(), 0x2C0400u);
    EXPECT_EQ(mask(&LegacyPort::IsInput), 0x1FFFFFu);
    EXPECT_EQ(mask(&LegacyPort::IsOutput), 0x7E0400u);
    EXPECT_EQ(port.GetPinCount(), 23u);
    EXPECT_NO_THROW(port.ConfigureInput(20));
    EXPECT_NO_THROW(port.ConfigureOutput(10));
    EXPECT_THAT([&] { port.ConfigureInput(21); },
                testing::ThrowsMessage<std::runtime_error>("Pin cannot be configured as input"));
    EXPECT_THAT([&] { port.ConfigureOutput(16); },
                testing::ThrowsMessage<std::runtime_error>("Pin cannot be configured as an output"));
}
