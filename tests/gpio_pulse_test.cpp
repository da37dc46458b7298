// Pulses of lines that only record what is written to them.

#include "lib/hardware/gpio_pulse.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using ExternalControl::Impl::PulseEngine;
using ExternalControl::Impl::PulseSettings;

class GpioPulse : public testing::Test {
protected:
    using Clock = std::chrono::steady_clock;
    static constexpr PulseSettings ENDLESS{1h, 10};

    void Write(unsigned pin, bool level) {
        if (m_broken[pin]) {
            throw std::runtime_error("broken");
        }
        m_levels[pin] += level ? '1' : '0';
        m_times[pin].push_back(Clock::now());
        m_written.notify_one();
    }

    /// The levels written to a pin, once there are so many: "1" for high, "0" for low.
    std::string Levels(unsigned pin, std::size_t count) {
        std::unique_lock lock(m_outputMutex);
        m_written.wait(lock, [&] { return m_levels[pin].size() >= count; });
        return m_levels[pin];
    }

    /// Waits until so many threads make pulses; one that was joined stays in the process for a moment.
    static void WaitForThreads(unsigned expected) {
        for (unsigned count = ~0u; count != expected;) {
            count = 0;
            for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
                std::string name;
                std::ifstream(task.path() / "comm") >> name;
                count += name == "GPIOPulse";
            }
        }
    }

    std::mutex m_outputMutex;
    std::condition_variable m_written;
    std::string m_levels[4];
    std::vector<Clock::time_point> m_times[4];
    std::atomic<bool> m_broken[4]{};
    PulseEngine m_engine{m_outputMutex, [this](unsigned pin, bool level) { Write(pin, level); }};
};

TEST_F(GpioPulse, SettingsAreBroughtIntoRange) {
    EXPECT_EQ(PulseSettings::ForRequest(0, 0), (PulseSettings{1000us, 10}));
    EXPECT_EQ(PulseSettings::ForRequest(50, 64), (PulseSettings{100us, 32}));
    EXPECT_EQ(PulseSettings::ForRequest(250, 1), (PulseSettings{250us, 2}));
}

TEST_F(GpioPulse, CyclesKeepToTheClockForAThousandPeriods) {
    m_engine.Configure({4ms, 10});
    m_engine.Start(1, 3);
    std::this_thread::sleep_for(1200ms);
    // Steps that are over by the end of this are counted, but not made up for.
    std::unique_lock lock(m_outputMutex);
    std::this_thread::sleep_for(136ms);
    const auto released = Clock::now();
    lock.unlock();
    std::this_thread::sleep_for(2700ms);

    lock.lock();
    unsigned madeUp = 0, counts[2] = {}, onTime[2] = {};
    for (std::size_t i = 1; i < m_times[1].size(); ++i) {
        ASSERT_NE(m_levels[1][i], m_levels[1][i - 1]);
        if (m_times[1][i] >= released) {
            const bool level = m_levels[1][i] == '1';
            const double step = (m_times[1][i] - m_times[1][0]) / std::chrono::duration<double>(4ms);
            madeUp += m_times[1][i] < released + 8ms;
            ++counts[level];
            onTime[level] += std::abs(std::remainder(step - (level ? 0 : 3), 10)) < 0.5;
        }
    }
    EXPECT_LE(madeUp, 2u);
    // Any step may be late, but where the clock is lost no more than one in ten is still on time.
    EXPECT_TRUE(onTime[0] * 4 > counts[0] && onTime[1] * 4 > counts[1]) << onTime[0] << ", " << onTime[1];
}

TEST_F(GpioPulse, PulsesEndAtOnceAndLeaveTheirLinesLow) {
    m_engine.Configure(ENDLESS);
    m_engine.Stop(2);
    m_engine.Start(1, 1);
    EXPECT_EQ(Levels(1, 1), "1");
    m_engine.Start(2, 10);
    EXPECT_EQ(Levels(2, 1), "1");
    m_engine.Start(2, 0);
    EXPECT_EQ(Levels(2, 2), "10");
    m_engine.Stop(1);
    EXPECT_EQ(Levels(1, 2), "10");
    m_engine.Configure({2h, 10});
    WaitForThreads(1);
    m_engine.Configure({1ms, 4});
    EXPECT_EQ(Levels(2, 3), "100");
    WaitForThreads(0);
    {
        PulseEngine another(m_outputMutex, [this](unsigned pin, bool level) { Write(pin, level); });
        another.Configure(ENDLESS);
        another.Start(3, 1);
        Levels(3, 1);
    }
    EXPECT_EQ(Levels(3, 2), "10");
}

TEST_F(GpioPulse, AFailureEndsOnlyThePulseOfItsPin) {
    testing::internal::CaptureStderr();
    m_broken[2] = true;
    m_engine.Start(1, 5);
    m_engine.Start(2, 5);
    Levels(1, 10);
    m_broken[1] = true;
    WaitForThreads(0);
    EXPECT_TRUE(
        testing::internal::GetCapturedStderr().starts_with("GPIOPulse: the pulse of pin 2 ends: broken\n"));
    m_broken[2] = false;
    m_engine.Start(2, 10);
    Levels(2, 1);
    m_broken[2] = true;
    EXPECT_THROW(m_engine.Stop(2), std::runtime_error);
    WaitForThreads(0);
}

TEST_F(GpioPulse, OperationsMayComeFromSeveralThreads) {
    std::vector<std::jthread> threads;
    for (unsigned pin = 0; pin < 4; ++pin) {
        threads.emplace_back([this, pin] {
            for (unsigned i = 0; i < 200; ++i) {
                m_engine.Start(pin, i % 4);
                m_engine.Configure({100us, 2 + (pin + i) % 2});
                m_engine.Stop(pin);
            }
        });
    }
    threads.clear();
    WaitForThreads(0);
    for (const std::string& levels : m_levels) {
        EXPECT_FALSE(levels.ends_with('1'));
    }
}
