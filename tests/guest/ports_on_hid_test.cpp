// Ports against the kernel's own hiddev driver. Runs inside the virtual player, as root; every test brings
// its own boards and plugs and unplugs them as it needs. The poll thread ends the process when a test
// leaves a client or a timer behind.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "lib/hardware/external_control_hid.h"
#include "lib/hardware/external_control_hid_finder.h"
#include "lib/hardware/open_port.h"
#include "lib/platform/errno_exception.h"
#include "tests/guest/board_process.h"

using namespace ExternalControl;
using namespace ExternalControl::Impl;
using namespace std::chrono_literals;

namespace {

/// A board on the USB bus, as long as it lives.
class Board : public DeviceProcess {
public:
    Board(const std::string& model, unsigned port, const std::string& vendor = "0x084f")
        : DeviceProcess({"usb-board", "--model", model, "--port", std::to_string(port), "--vendor", vendor}) {
    }

    void Unplug() {
        Send("unplug");
        WaitFor("unplug");
    }

    void Plug() {
        Send("plug");
        WaitFor("plugged");
    }
};

/// How often nodes have been announced: twice when a board is plugged in, by the kernel and by udevd.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): nobody owns it through its base
struct AnnouncementCount final : DeviceHotplugUpdateObserver {
    std::atomic<int> count{0};
    std::atomic<int> gone{0};  ///< how often they were announced to have gone
    void OnDeviceAppeared(const std::string&) override { ++count; }
    void OnDeviceDisappeared(const std::string&) override { ++gone; }
};

DescriptorPtr FindAvailable(const std::string& name) {
    Finder finder;
    finder.Scan();
    finder.AskForModels();
    return AvailablePorts(finder.GetDescriptors()).Find(name);
}

std::shared_ptr<PortOnHid> OpenAvailable(const std::string& name, InputCallback input = Ignore,
                                         LostCallback lost = {}) {
    const auto descriptor = FindAvailable(name);
    if (!descriptor) {
        throw std::runtime_error("no port " + name);
    }
    return PortOnHid::Open(*descriptor, std::move(input), std::move(lost));
}

long CountDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

std::string Leds(const std::vector<unsigned>& values) {
    std::string text = "leds=";
    for (const unsigned value : values) {
        text += strprintf("%s0x%08X", text.back() == '=' ? "" : ",", value);
    }
    return text;
}

/// Waits until the kernel fails the requests of a port whose board was unplugged.
void WaitUntilGone(PortOnHid& port) {
    WaitUntil([&] {
        try {
            port.GetVersion();
            return false;
        } catch (const ErrnoException& e) {
            return e.GetErrno() == ENODEV;
        }
    });
}

}  // namespace

class PortsOnHid : public testing::Test {
protected:
    // What the kernel has not cleared away yet must not be found by the next test.
    void TearDown() override {
        WaitUntil(
            [] { return !std::filesystem::exists("/dev/usb/hiddev0") && !UsbBusOrder::Find("usb/hiddev0"); });
    }

    PollThread m_pollThread;
    KestrelObjectGlobals m_objectGlobals;
};

TEST_F(PortsOnHid, TheTableOfPortsIsBuiltOnce) {
    Board board("KP480", 0);
    EXPECT_EQ(OpenPort("touchboard-0-led", Ignore, {})->GetPinCount(), 11u);
    Board late("KP480", 4);
    for (const char* name : {"TouchBoard-1-GPIO", "vantora "}) {
        try {
            OpenPort(name, Ignore, {});
            ADD_FAILURE() << name;
        } catch (const PortNotFoundException& e) {
            EXPECT_STREQ(e.what(), "External control port not found");
        }
    }
    EXPECT_TRUE(FindAvailable("TouchBoard-1-GPIO"));
}

TEST_F(PortsOnHid, BoardsAreNumberedByPositionAndIdentified) {
    Board foreign("KP480", 1, "0x1234");
    Board far("KP120H", 4);
    Board near("KP480B", 2);
    EXPECT_LT(UsbBusOrder::Find("usb/hiddev2")->position, UsbBusOrder::Find("usb/hiddev1")->position);
    EXPECT_FALSE(UsbBusOrder::Find("usb/hiddev9"));

    const auto gpio = OpenAvailable("TouchBoard-0-GPIO");
    EXPECT_EQ(gpio->GetPinCount(), 11u);
    EXPECT_TRUE(gpio->GetProperties().starts_with("hardware=KP480;header=no;revision=B;"))
        << gpio->GetProperties();
    EXPECT_EQ(gpio->GetVersion().size(), 4u);
    EXPECT_EQ(OpenAvailable("TouchBoard-1-GPIO")->GetProperties(),
              "hardware=KP120;header=yes;revision=A;rheader=21");
    EXPECT_FALSE(FindAvailable("TouchBoard-2-GPIO"));
}

TEST_F(PortsOnHid, ABoardThatRefusesToAnswerStillHasPorts) {
    Board board("KP480", 0);
    board.Send("stall");
    const auto leds = OpenAvailable("TouchBoard-0-LED");
    EXPECT_EQ(leds->GetProperties(), "");
    EXPECT_NO_THROW(leds->SetOutput(0, 1));
}

TEST_F(PortsOnHid, InputsReachTheirCallbacks) {
    Board board("KP480", 0);
    EventLog levels, gpioValues, diagnostics;
    const auto gpio = OpenAvailable("TouchBoard-0-GPIO", levels.Callback());
    gpio->SetValueCallback(gpioValues.Callback());
    board.Send("touch 3");
    levels.WaitFor(1);
    board.Send("release 3");
    gpioValues.WaitFor(22);
    // Levels only when they change; values always, all pins of a report in order.
    EXPECT_EQ(levels.Take(), (std::vector<Event>{{2, 1, 1}, {2, 0, 1}}));
    const std::vector<Event> values = gpioValues.Take();
    for (unsigned i = 0; i < values.size(); ++i) {
        EXPECT_EQ(values[i], (Event{i % 11, i == 2, 32})) << i;
    }
    EXPECT_EQ(gpio->ReadAllInputs(), 0u);
    board.Send("touch 1");
    levels.WaitFor(1);
    EXPECT_TRUE(gpio->GetInput(0) && gpio->IsInput(0) && !gpio->IsOutput(0));
    EXPECT_THROW(gpio->ConfigureOutput(0), std::runtime_error);

    // A callback may replace itself; two ports of one name work side by side.
    std::atomic<int> calls{0};
    const auto first = OpenAvailable("TouchBoard-0-DIAGNOSTICS");
    const auto second = OpenAvailable("TouchBoard-0-DIAGNOSTICS");
    first->SetValueCallback([&first, &calls, text = std::string(100, 'x')](unsigned, unsigned, unsigned) {
        first->SetValueCallback({});
        calls += text.size() == 100;
    });
    second->SetValueCallback(diagnostics.Callback());
    OpenAvailable("TouchBoard-0-LED-SETUP")->SetOutput(0, 0x1C2);
    diagnostics.WaitFor(58);  // both reports
    const std::vector<Event> words = diagnostics.Take();
    for (unsigned i = 0; i < 2 * 29; ++i) {
        EXPECT_EQ(words[i].pin, i % 29);
    }
    EXPECT_EQ(words[1].value & 0xFF, 1u);
    EXPECT_EQ(calls, 1);
}

TEST_F(PortsOnHid, OutputsReachTheBoard) {
    Board board("KP480", 0);
    const auto leds = OpenAvailable("TouchBoard-0-LED");
    leds->SetAllLevels(0x5);
    EXPECT_TRUE(board.HasState(Leds({1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0})));
    const std::vector<unsigned> many(2000, 0xFFFFFFFF);
    leds->SetOutputs(many.data(), 2);
    EXPECT_TRUE(board.HasState(Leds({0xFFFFFFFF, 0xFFFFFFFF, 1, 0, 0, 0, 0, 0, 0, 0, 0})));
    EXPECT_EQ(leds->ReadAllOutputs(), 0x7u);
    leds->SetOutputs(many.data(), 2000);
    leds->SetOutputs(many.data(), 0);
    leds->SetOutput(10, 0);
    EXPECT_EQ(leds->ReadAllOutputs(), 0x3FFu);
    EXPECT_EQ(leds->ReadAllInputs(), 0u);
    EXPECT_NO_THROW(leds->ConfigureOutput(3));
    EXPECT_THROW(leds->ConfigureInput(3), std::runtime_error);
}

TEST_F(PortsOnHid, OutputsAndValuesSurviveTwentyReturns) {
    Board board("KP480", 0);
    EventLog values;
    std::atomic<int> lost{0};
    const auto diagnostics = OpenAvailable("TouchBoard-0-DIAGNOSTICS", Ignore, [&] { ++lost; });
    diagnostics->SetValueCallback(values.Callback());
    const auto setup = OpenAvailable("TouchBoard-0-LED-SETUP");
    const auto leds = OpenAvailable("TouchBoard-0-LED");
    setup->SetOutput(1, 0x15);
    setup->SetOutput(0, 0x1C2);
    const long descriptors = CountDescriptors();
    std::vector<unsigned> written(11, 0);
    for (unsigned cycle = 0; cycle < 20; ++cycle) {
        leds->SetOutput(cycle % 11, written[cycle % 11] = 100 + cycle);
        board.Unplug();
        WaitUntilGone(*leds);
        written[5] = 200 + cycle;
        EXPECT_THROW(leds->SetOutput(5, written[5]), ErrnoException);
        board.Plug();
        WaitUntil([&] { return board.HasState(Leds(written)) && board.HasState("button-mask=0x00000015"); });
        values.Take();
        values.WaitFor(1);
    }
    EXPECT_EQ(CountDescriptors(), descriptors);
    EXPECT_EQ(lost, 0);
}

TEST_F(PortsOnHid, DirectionsAndOutputsSurviveReturns) {
    Board board("expander", 0, "0x2877");
    board.Send("level 0 1");
    board.Send("dip 7 1");
    EXPECT_TRUE(board.HasState("inputs=0x00000001 dip=0x00000080"));
    const auto gpio = OpenAvailable("Expander-0-GPIO");
    // Active low, as all boards but the touch board.
    EXPECT_EQ(gpio->ReadAllInputs(), 0x0001u);
    EXPECT_EQ(OpenAvailable("Expander-0-DIP")->ReadAllInputs(), 0x80u);
    gpio->ConfigureOutput(3);
    gpio->ConfigureOutput(17);
    gpio->ConfigureOutput(0);
    gpio->ConfigureInput(0);
    gpio->SetOutput(17, 1);
    gpio->SetOutput(4, 2);
    EXPECT_TRUE(board.HasState("outputs=0x00020010 directions=0x00020008"));
    for (int cycle = 0; cycle < 2; ++cycle) {
        board.Unplug();
        WaitUntilGone(*gpio);
        EXPECT_THROW(gpio->SetOutput(5, 1), ErrnoException);
        board.Plug();
        WaitUntil([&] { return board.HasState("outputs=0x00020030 directions=0x00020008"); });
    }
    EXPECT_TRUE(gpio->IsOutput(3) && gpio->IsInput(0));
    EXPECT_EQ(gpio->ReadAllOutputs(), 0x20030u);
}

TEST_F(PortsOnHid, ALostBoardIsReportedOnceAndMayStillReturn) {
    Board board("KP480", 0);
    EventLog values;
    std::atomic<int> lost{0};
    auto gpio = OpenAvailable("TouchBoard-0-GPIO", Ignore, [&] { ++lost; });
    gpio->SetValueCallback(values.Callback());
    const auto start = std::chrono::steady_clock::now();
    board.Unplug();
    WaitUntil([&] { return lost == 1; });
    EXPECT_GE(std::chrono::steady_clock::now() - start, 10s);
    board.Plug();
    WaitUntil([&] {
        board.Send("touch 1");
        return !values.Take().empty();
    });
    // Destroyed while it is lost again: no timer may be left.
    board.Unplug();
    WaitUntilGone(*gpio);
    gpio.reset();
    EXPECT_EQ(lost, 1);
}

TEST_F(PortsOnHid, ABoardThatIsBackBeforeItsLossIsSeenReturns) {
    Board board("KP480", 0);
    const auto leds = OpenAvailable("TouchBoard-0-LED");
    leds->SetAllLevels(0x7FF);
    AnnouncementCount announcements;
    m_objectGlobals.AddHotplugObserver(&announcements, "/hiddev");
    {
        // As a slow callback does.
        const auto blocked = m_pollThread.BlockCallbacks();
        board.Unplug();
        board.Plug();
        WaitUntil([&] { return announcements.count >= 2; });
        EXPECT_GE(announcements.gone, 1);
    }
    WaitUntil([&] { return board.HasState(Leds(std::vector<unsigned>(11, 1))); });
    m_objectGlobals.RemoveHotplugObserver(&announcements, "/hiddev");
}
