// Pulses of lines that only record what is written to them.

#include "lib/hardware/gpio_pulse.h"

#include <gtest/gtest.h>

#include <algorithm>
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
        std::this_thread::sleep_for(m_writingTakes);
    }

    /// The levels written to a pin, once there are so many: "1" for high, "0" for low.
    std::string Levels(unsigned pin, std::size_t count) {
        std::unique_lock lock(m_outputMutex);
        m_written.wait_for(lock, 60s, [&] { return m_levels[pin].size() >= count; });
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
            std::this_thread::sleep_for(1ms);
        }
    }

    /// How often the thread that makes pulses has waited.
    static unsigned CountWaits() {
        unsigned count = 0;
        for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
            std::string name, word;
            std::ifstream(task.path() / "comm") >> name;
            std::ifstream status(task.path() / "status");
            while (name == "GPIOPulse" && word != "voluntary_ctxt_switches:" && status >> word) {
            }
            status >> count;
        }
        return count;
    }

    strata::FairRecursiveMutex m_outputMutex;
    std::condition_variable_any m_written;
    std::chrono::milliseconds m_writingTakes{0};  ///< set before there are pulses
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

TEST_F(GpioPulse, CyclesKeepToTheClockForManyCycles) {
    constexpr auto PERIOD = 4ms;
    constexpr unsigned STEPS = 11, HIGH_STEPS = 6, EDGES = 2 * 24;
    // Every level misses one step and is late for another, all cycles long.
    m_writingTakes = PERIOD * 5 / 2;
    m_engine.Configure({PERIOD, STEPS});
    m_engine.Start(1, HIGH_STEPS);
    Levels(1, EDGES / 2);
    // Steps that are over by the end of this are counted, but not made up for.
    std::unique_lock lock(m_outputMutex);
    std::this_thread::sleep_for(70 * PERIOD);
    const auto released = Clock::now();
    lock.unlock();
    Levels(1, EDGES);

    lock.lock();
    const std::vector<Clock::time_point>& times = m_times[1];
    // In less than three cycles there are at most seven.
    const auto later = released + 30 * PERIOD;
    EXPECT_LE(std::ranges::count_if(times, [&](auto time) { return time >= released && time < later; }), 7);
    // Any level may be late, but where the clock is lost no more than a few are at the same place in the
    // cycle.
    unsigned together = 0;
    for (const auto& start : times) {
        unsigned counts[2] = {};
        for (std::size_t i = 0; i < times.size(); ++i) {
            const bool level = m_levels[1][i] == '1';
            const auto step =
                (times[i] - start) / std::chrono::duration<double>(PERIOD) - (level ? 0 : HIGH_STEPS);
            counts[level] += std::abs(std::remainder(step, STEPS)) < 0.5;
        }
        together = std::max(together, std::min(counts[0], counts[1]));
    }
    EXPECT_GT(together * 4, EDGES / 2);
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
    EXPECT_EQ(Levels(2, 2), "10");
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

TEST_F(GpioPulse, LevelsThatNeverChangeNeedNoSteps) {
    m_engine.Configure({100us, 4});
    m_engine.Start(1, 4);
    m_engine.Start(2, 0);
    Levels(1, 1);
    Levels(2, 1);
    const unsigned earlier = CountWaits();
    std::this_thread::sleep_for(100ms);
    EXPECT_LT(CountWaits(), earlier + 10);
    m_engine.Start(2, 1);
    EXPECT_TRUE(Levels(2, 5).starts_with("01010"));
    m_engine.Start(2, 4);
    m_engine.Stop(1);
    EXPECT_EQ(Levels(1, 2), "10");
}

TEST_F(GpioPulse, AFailureEndsOnlyThePulseOfItsPin) {
    std::string failed;
    m_engine.SetFailureCallback([&failed](unsigned pin) { failed += std::to_string(pin); });
    testing::internal::CaptureStderr();
    m_broken[2] = true;
    m_engine.Start(1, 5);
    m_engine.Start(2, 5);
    Levels(1, 10);
    m_broken[1] = true;
    WaitForThreads(0);
    {
        const std::lock_guard lock(m_outputMutex);
        EXPECT_EQ(failed, "21");
    }
    EXPECT_TRUE(
        testing::internal::GetCapturedStderr().starts_with("GPIOPulse: the pulse of pin 2 ends: broken\n"));
    m_broken[2] = false;
    m_engine.Start(2, 10);
    Levels(2, 1);
    m_broken[2] = true;
    EXPECT_THROW(m_engine.Stop(2), std::runtime_error);
    WaitForThreads(0);
}

TEST_F(GpioPulse, ALineThatAFailureLeftHighIsSetLowLater) {
    testing::internal::CaptureStderr();
    {
        PulseEngine engine(m_outputMutex, [this](unsigned pin, bool level) { Write(pin, level); });
        engine.Configure(ENDLESS);
        for (unsigned pin = 0; pin < 4; ++pin) {
            engine.Start(pin, 10);
            Levels(pin, 1);
            m_broken[pin] = true;
            engine.Start(pin, 0);
        }
        WaitForThreads(0);
        m_broken[0] = m_broken[1] = m_broken[2] = false;
        engine.Stop(0);
        EXPECT_EQ(Levels(0, 2), "10");
        engine.Start(1, 10);
        EXPECT_EQ(Levels(1, 2), "11");
        engine.Stop(1);
        engine.Configure({1h, 11});
        EXPECT_EQ(Levels(2, 2), "10");
        m_broken[3] = false;
    }
    EXPECT_EQ(Levels(3, 2), "10");
    EXPECT_EQ(Levels(1, 3), "110");
    EXPECT_TRUE(
        testing::internal::GetCapturedStderr().ends_with("pin 3 is not set low after its pulse: broken\n"));
}

TEST_F(GpioPulse, WritingThatTakesLongerThanAPeriodLetsOthersIn) {
    m_writingTakes = 20ms;
    m_engine.Configure({100us, 2});
    m_engine.Start(1, 1);
    const std::size_t earlier = Levels(1, 3).size();
    m_engine.Stop(1);
    EXPECT_LT(Levels(1, 0).size(), earlier + 50);
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
