// A HID port against a board that comes, goes and keeps silent as the test wants.

#include "lib/hardware/external_control_hid.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

#include "lib/platform/errno_exception.h"
#include "lib/platform/posix_helpers.h"
#include "tests/modelled_board.h"
#include "tests/poll_iteration.h"

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

/// Starts a thread and returns when it waits for something.
template <class Body>
std::jthread StartAndWaitUntilAsleep(Body body) {
    std::atomic<pid_t> id{0};
    std::jthread thread([&id, body] {
        id = gettid();
        body();
    });
    while (id == 0) {
        std::this_thread::yield();
    }
    const std::string path = "/proc/self/task/" + std::to_string(id) + "/stat";
    for (std::string stat; stat.empty() || stat[stat.rfind(')') + 2] != 'S'; stat = read_file_throw(path)) {
        std::this_thread::yield();
    }
    return thread;
}

class PortOnModelledBoard : public testing::Test {
protected:
    void WaitForOutputs(const Values& values) {
        m_board.WaitUntil([&](const ModelledBoard::Device& device) { return device.sent == values; });
    }

    ModelledBoard m_board;
    PollThread m_pollThread;
    KestrelObjectGlobals m_objectGlobals;
};

// A circle of locks would be: a callback takes the caller's, a command is given under the caller's, a
// reconnection holds up the command while it waits for the callback.
TEST_F(PortOnModelledBoard, CommandsCallbacksAndReleasesGoOnWhileTheBoardComesAndGoes) {
    const char* const wanted = std::getenv("PADTUNE_RECONNECTIONS");
    const int reconnections = wanted != nullptr ? std::stoi(wanted) : 1'000;
    constexpr int RELEASE_EVERY = 8;  // but not at the last one

    std::mutex callersMutex;  // guards all that follows
    std::array<std::shared_ptr<PortOnHid>, 2> ports;
    Values commanded(ModelledBoard::PINS);
    int last = 0;

    // The first port has pins 0 and 1, the second 2 and 3.
    const auto command = [&](unsigned pin) {
        const std::lock_guard lock(callersMutex);
        for (const auto& port : ports) {
            try {
                commanded[pin] = ++last;
                if (port) {
                    port->SetOutput(pin, static_cast<unsigned>(last));
                }
            } catch (const ErrnoException&) {
                // Remembered, to be sent when the board is back.
            }
            pin += 2;
        }
    };
    const auto replace = [&](std::size_t index, std::shared_ptr<PortOnHid> port) {
        std::unique_lock lock(callersMutex);
        ports[index].swap(port);
        commanded[2 * index] = commanded[2 * index + 1] = 0;
        lock.unlock();
    };
    const auto open = [&](std::size_t index) {
        const auto port = OpenPort();
        port->SetValueCallback([&](unsigned, unsigned, unsigned) { command(1); });
        replace(index, port);
    };

    testing::internal::CaptureStderr();  // every loss is reported
    open(0);
    open(1);
    {
        const std::jthread commander([&](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                command(0);
                std::this_thread::yield();
            }
        });
        for (int i = 1; i <= reconnections; ++i) {
            m_board.SendInput(0, i);
            m_board.Unplug();
            m_board.Plug();
            if (i % RELEASE_EVERY == 1) {
                replace(0, nullptr);
                open(0);
            }
            m_board.WaitUntil([&](const auto& device) { return device.openings >= ports.size(); });
        }
    }
    testing::internal::GetCapturedStderr();
    WaitForOutputs(commanded);
    replace(0, nullptr);
    replace(1, nullptr);
}

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

TEST_F(PortOnModelledBoard, ACommandWaitsForOneRequestOfTheReconnectionAndIsNotUndone) {
    const auto port = OpenPort();
    for (unsigned pin = 0; pin < ModelledBoard::PINS; ++pin) {
        port->SetOutput(pin, 10 + pin);
    }
    m_board.Mute();
    m_board.Unplug();
    m_board.Plug();
    m_board.WaitForRequest();
    std::jthread commander = StartAndWaitUntilAsleep([&] { port->SetOutput(3, 99); });
    while (m_board.GetDevice().outputs[2] == 0) {
        m_board.Answer(1);
        m_board.WaitForRequest();
    }
    EXPECT_EQ(m_board.GetDevice().outputs, (Values{10, 11, 12, 99}));
    m_board.Answer();
    commander.join();
    WaitForOutputs({10, 11, 12, 99});
}

TEST_F(PortOnModelledBoard, NoCallbackComesToAPortThatWaitsForItsReconnectionToEnd) {
    auto port = OpenPort();
    std::atomic<int> calls{0};
    port->SetValueCallback([&](unsigned, unsigned, unsigned) { ++calls; });
    m_board.Mute();
    m_board.Unplug();
    m_board.Plug();
    m_board.WaitForRequest();
    m_board.SendInput(0, 1);
    WaitForAnIteration(m_pollThread);
    EXPECT_EQ(calls, 1);

    bool quiet = false;
    const std::jthread observer([&] {
        for (int i = 0; i < 100'000 && !quiet; ++i) {
            const int before = calls;
            m_board.SendInput(0, 1);
            WaitForAnIteration(m_pollThread);
            quiet = calls == before;
        }
        m_board.Answer();
    });
    port.reset();
    EXPECT_TRUE(quiet);
}

// The poll thread ends the process when it is left attached.
TEST_F(PortOnModelledBoard, APortThatIsBeingDestroyedIsNotAttachedAgain) {
    auto port = OpenPort();
    m_board.Unplug();
    WaitForAnIteration(m_pollThread);
    std::jthread destroyer;
    {
        // Reconnection and destructor wait side by side, and take turns then.
        const auto blocked = m_pollThread.BlockCallbacks();
        m_board.Plug();
        m_board.WaitUntil([](const auto& device) { return device.openings == 1; });
        destroyer = StartAndWaitUntilAsleep([&] { port.reset(); });
    }
}

}  // namespace
