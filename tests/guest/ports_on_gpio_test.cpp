// The ports on the player's own lines, against the character device of the virtual player. Runs inside it, as
// root; every test brings its own lines. The poll thread ends the process when a test leaves a client behind.

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <stdexcept>

#include "lib/hardware/external_control_input_driver.h"
#include "lib/hardware/open_port.h"
#include "lib/platform/string_operations.h"
#include "tests/guest/board_process.h"

using namespace ExternalControl;
using ExternalControl::Impl::PortOnLinuxInputDriver;

namespace {

constexpr const char* NODE = "/dev/input/vantora-gpio";

/// Pins 0 to 3 are inputs, 4 to 7 outputs, 8 to 12 either.
class Lines : public DeviceProcess {
public:
    Lines()
        : DeviceProcess({"gpio-lines", "--offered-inputs", "0x1F0F", "--offered-outputs", "0x1FF0",
                         "--switchable", "0x1F00"}) {}

    /// What was written since the last call, as "CODE=VALUE CODE=VALUE ".
    std::string TakeWritten() {
        Send("state");
        std::string written;
        for (;;) {
            const std::string record = NextRecord();
            unsigned code, value;
            if (record.find(" state ") != std::string::npos) {
                return written;
            }
            if (sscanf(record.c_str(), "%*s write 17 %u %u", &code, &value) == 2) {
                written += strprintf("%u=%u ", code, value);
            }
        }
    }
};

std::int64_t Now() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// A port whose first callback waits, so that the kernel keeps what happens meanwhile.
struct HeldPort {
    ~HeldPort() { Release(); }

    /// Raises pin 0.
    void Hold(Lines& lines) {
        lines.Send("level 0 1");
        isCalled.wait(false);
    }

    void Release() {
        mayReturn = true;
        mayReturn.notify_one();
    }

    std::atomic<bool> isCalled = false, mayReturn = false;
    EventLog log;
    std::vector<std::int64_t> times;  ///< of the logged events
    const std::shared_ptr<PortOnLinuxInputDriver> port = PortOnLinuxInputDriver::Open(
        [this, callback = log.Callback()](unsigned pin, unsigned value, unsigned width) {
            times.push_back(port->GetEventTime());
            callback(pin, value, width);
            isCalled = true;
            isCalled.notify_one();
            mayReturn.wait(false);
        });
};

}  // namespace

class PortsOnGpio : public testing::Test {
protected:
    void TearDown() override {
        WaitUntil([] { return !std::filesystem::exists(NODE); });
    }

    PollThread m_pollThread;
};

TEST_F(PortsOnGpio, NamesSelectThem) {
    for (const char* name : {"vantora", "vx1000-COMPATIBLE"}) {
        EXPECT_THAT([name] { OpenPort(name, Ignore, {}); },
                    testing::ThrowsMessage<ErrnoException>(
                        testing::StartsWith(std::string(NODE) + ": No such file")));
    }
    Lines lines;
    EXPECT_EQ(OpenPort("VANTORA", Ignore, {})->GetPinCount(), 13u);
    // No board has a port of the names that it asks for.
    EXPECT_THROW(OpenPort("vx1000-COMPATIBLE", Ignore, {}), std::runtime_error);
}

TEST_F(PortsOnGpio, CommandsReachTheLines) {
    Lines lines;
    EventLog log;
    const auto port = PortOnLinuxInputDriver::Open(log.Callback());
    EXPECT_TRUE(!port->IsOutput(3) && port->IsOutput(4) && !port->IsOutput(9));
    EXPECT_TRUE(port->IsInput(3) && port->IsInput(4) && port->IsInput(9));
    port->ConfigureOutput(9);
    port->ConfigureOutput(10);
    port->ConfigureInput(10);
    port->SetPinParameter(8, 255);
    EXPECT_EQ(lines.TakeWritten(), "49=1 50=1 50=0 80=255 ");
    EXPECT_TRUE(port->IsOutput(9) && !port->IsInput(9) && !port->IsOutput(10) && port->IsInput(10));

    const unsigned values[] = {1, 1, 1, 1, 0, 2};
    port->SetAllLevels(0xFFFFFFF0);
    port->SetOutputs(values, 6);
    EXPECT_EQ(lines.TakeWritten(), "12=1 13=1 14=1 15=1 16=1 17=1 18=1 19=1 20=1 12=0 13=1 ");
    EXPECT_EQ(port->ReadAllOutputs(), 0x1FE0u);
    EXPECT_TRUE(!port->GetOutput(4) && port->GetOutput(5));
    lines.Send("level 2 1");
    lines.Send("level 12 1");
    log.WaitFor(2);
    EXPECT_EQ(port->ReadAllInputs(), 0x1004u);
    EXPECT_TRUE(port->GetInput(2) && !port->GetInput(3));

    const std::function<void()> impossible[] = {
        [&] { port->ConfigureInput(3); },     [&] { port->ConfigureOutput(4); },
        [&] { port->SetPinParameter(7, 1); }, [&] { port->ConfigureInput(32); },
        [&] { port->GetInput(32); },          [&] { port->SetOutput(32, 1); },
        [&] { port->StartPulse(32, 1); },
    };
    for (const auto& command : impossible) {
        EXPECT_THROW(command(), PinNotAvailableException);
    }
    EXPECT_EQ(lines.TakeWritten(), "");
    EXPECT_FALSE(port->SetPinFunction(9, "uart") || port->SetPinFunction(10, "pwm"));
    EXPECT_TRUE(port->SetPinFunction(9, "pwm"));
    lines.WaitFor(" mux 9 3");
    for (const auto& [failure, written] : {std::pair{"fail ioctl", "12=1 "}, {"fail write", ""}}) {
        lines.Send(failure);
        lines.TakeWritten();
        EXPECT_THROW(port->SetOutput(4, 1), ErrnoException);
        EXPECT_EQ(lines.TakeWritten(), written);
    }
}

TEST_F(PortsOnGpio, ChangesOfInputsAreReported) {
    Lines lines;
    EventLog log;
    const auto callback = log.Callback();
    const auto port = OpenPort("vantora",
                               [&](unsigned pin, unsigned value, unsigned width) {
                                   callback(pin, value, width);
                                   // The poll thread must survive both.
                                   if (pin == 8) {
                                       throw pin;
                                   }
                                   throw std::runtime_error("exception");
                               },
                               {});
    port->ConfigureOutput(9);
    for (const char* line : {"level 0 1", "level 8 1", "level 9 1", "event 1 12 1", "event 1 7 1",
                             "event 17 8 1", "event 1 40 1", "level 0 0", "event 1 8 2", "event 0 0 0"}) {
        lines.Send(line);
    }
    log.WaitFor(4);
    EXPECT_EQ(log.Take(), (std::vector<Event>{{0, 1, 1}, {8, 1, 1}, {0, 0, 1}, {0, 1, 1}}));
}

TEST_F(PortsOnGpio, ADeviceThatCannotBeReadIsTriedOnceInASecond) {
    Lines lines;
    EventLog log;
    const auto port = OpenPort("vantora", log.Callback(), {});
    lines.Send("fail read");
    lines.Send("level 0 1");
    const double first = std::stod(lines.WaitFor(" refused a read"));
    EXPECT_GE(std::stod(lines.WaitFor(" refused a read")), first + 1);
    // The levels can be asked for.
    log.WaitFor(1);
    lines.Send("fail ioctl\nlevel 1 1\nlevel 0 0");
    lines.WaitFor(" refused a request");
    lines.WaitFor(" refused a request");
    lines.Send("fail nothing");
    log.WaitFor(3);
    lines.Send("level 2 1");
    log.WaitFor(4);
    // It worked, so that the next failure is told, too.
    lines.Send("fail read\nlevel 2 0");
    log.WaitFor(5);
    lines.Send("fail nothing");
    EXPECT_EQ(log.Take(), (std::vector<Event>{{0, 1, 1}, {0, 0, 1}, {1, 1, 1}, {2, 1, 1}, {2, 0, 1}}));
}

TEST_F(PortsOnGpio, OwnWritesAndQuestionsTakeNoChangesAway) {
    Lines lines;
    HeldPort held;
    const std::int64_t opened = Now();
    held.Hold(lines);
    // They come back as events, to whoever wants them.
    for (unsigned i = 0; i < 200; ++i) {
        held.port->SetOutput(4, i % 2);
    }
    for (const char* line : {"level 1 1", "level 1 0", "level 2 1"}) {
        lines.Send(line);
    }
    EXPECT_TRUE(lines.HasState("levels=0x00000005"));
    EXPECT_EQ(held.port->ReadAllInputs(), 5u);
    EXPECT_TRUE(held.port->GetInput(2) && held.port->IsInput(2));
    const std::int64_t released = Now();
    held.Release();
    held.log.WaitFor(4);
    EXPECT_EQ(held.log.Take(), (std::vector<Event>{{0, 1, 1}, {1, 1, 1}, {1, 0, 1}, {2, 1, 1}}));
    EXPECT_TRUE(opened < held.times.front() && std::ranges::is_sorted(held.times) &&
                held.times.back() < released);
}

TEST_F(PortsOnGpio, WhatDroppedEventsWouldHaveToldIsFoundOut) {
    Lines lines;
    HeldPort held;
    const Event dropped{99, 0, 0};
    held.port->SetDroppedCallback([&, callback = held.log.Callback()] { callback(99, 0, 0); });
    held.port->ConfigureOutput(9);
    held.Hold(lines);
    for (const char* line : {"level 0 0", "level 2 1", "level 9 1"}) {
        lines.Send(line);
    }
    // An even number of changes, more than there is room for.
    for (unsigned i = 1; i <= 40; ++i) {
        lines.Send(strprintf("level 1 %u", i % 2));
    }
    EXPECT_TRUE(lines.HasState("levels=0x00000204"));
    held.Release();
    held.log.WaitFor(4);
    lines.Send("level 3 1");
    held.log.WaitFor(5);
    EXPECT_EQ(held.log.Take(), (std::vector<Event>{{0, 1, 1}, dropped, {0, 0, 1}, {2, 1, 1}, {3, 1, 1}}));
    EXPECT_TRUE(std::ranges::is_sorted(held.times));
}

TEST_F(PortsOnGpio, OutputsPulse) {
    Lines lines;
    auto port = OpenPort("vantora", Ignore, {});
    EXPECT_TRUE(port->ConfigurePulse(2000, 4));
    EXPECT_FALSE(port->StartPulse(9, 1));
    EXPECT_TRUE(port->StartPulse(4, 3));
    EXPECT_TRUE(port->StopPulse(5));
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    // The wall clock is an hour back, an hour on, and right again.
    for (const time_t offset : {-3600, 3600, 0}) {
        const timespec time{now.tv_sec + offset, now.tv_nsec};
        ASSERT_EQ(clock_settime(CLOCK_REALTIME, &time), 0);
        lines.TakeWritten();
        for (int cycle = 0; cycle < 5; ++cycle) {
            lines.WaitFor(" write 17 12 1");
            lines.WaitFor(" write 17 12 0");
        }
    }
    EXPECT_TRUE(port->StopPulse(4));
    EXPECT_TRUE(lines.TakeWritten().ends_with("12=0 "));
    port->StartPulse(5, 4);
    lines.WaitFor(" write 17 13 1");
    port.reset();
    EXPECT_EQ(lines.TakeWritten(), "13=0 ");
}

TEST_F(PortsOnGpio, ADeviceThatVanishesIsLeftAlone) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const strata::UniqueFd messages(ends[0]), writingEnd(ends[1]);
    const strata::UniqueFd standardError(dup(STDERR_FILENO));
    auto lines = std::make_unique<Lines>();
    const auto port = OpenPort("vantora", Ignore, {});
    dup2(writingEnd.Get(), STDERR_FILENO);
    lines.reset();
    char text[256] = {};
    EXPECT_GT(read(messages.Get(), text, sizeof text - 1), 0);
    dup2(standardError.Get(), STDERR_FILENO);
    EXPECT_STREQ(text, "PortOnLinuxInputDriver: /dev/input/vantora-gpio is gone\n");
    EXPECT_THROW(port->GetInput(0), ErrnoException);
}
