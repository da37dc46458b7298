// Singletons, and timed waits on the monotonic clock.

#include "lib/platform/singleton.h"

#include <gtest/gtest.h>

#include <atomic>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>
#include <chrono>
#include <future>
#include <stdexcept>

#include "lib/platform/condition_variable.h"
#include "lib/platform/monotonic_time.h"
#include "tests/console_report.h"

using std::chrono::microseconds;

// In the global namespace, so that the function texts of the reports are short.
struct Widget : strata::Singleton<Widget> {
    explicit Widget(bool fail = false) {
        if (fail) {
            throw std::runtime_error("no widget");
        }
    }
};

struct Gadget : strata::AutoCreateSingleton<Gadget> {
    Gadget() {
        if (++sm_attempts == 1) {
            throw std::runtime_error("not yet");
        }
    }
    static inline std::atomic<int> sm_attempts{0};
};

namespace {

/// Beyond every timeout of a test: a wait that only its deadline ends fails.
constexpr std::chrono::hours AN_HOUR(1);

TEST(Singleton, IsFoundWhileItLivesAndLeavesNothingBehind) {
    EXPECT_FALSE(Widget::Exists());
    {
        Widget widget;
        EXPECT_TRUE(Widget::Exists());
        EXPECT_EQ(Widget::GetInstance(), &widget);
    }
    EXPECT_FALSE(Widget::Exists());
    EXPECT_THROW(Widget(true), std::runtime_error);
    EXPECT_FALSE(Widget::Exists());
    Widget again;
}

TEST(SingletonDeathTest, EndsTheProcessOnMisuse) {
    EXPECT_ABORT(
        "ASSERT FAILED: PlatformValidPointer\\(\\(sm_instance\\), "
        "nimbus2_assert_alignof\\(\\*\\(\\(sm_instance\\)\\)\\)\\)"
        "\r\nlib/platform/singleton\\.h:69:"
        "static T\\* strata::Singleton<T>::GetInstance\\(\\) \\[with T = Widget\\]\r\n",
        Widget::GetInstance());
    Widget widget;
    EXPECT_ABORT(
        "ASSERT FAILED: sm_instance == __null\r\nlib/platform/singleton\\.h:49:"
        "strata::Singleton<T>::Singleton\\(\\) \\[with T = Widget\\]\r\n",
        Widget());
}

TEST(AutoCreateSingleton, TriesAgainAfterAFailureAndThenCreatesOnce) {
    EXPECT_THROW(Gadget::GetInstance(), std::runtime_error);
    std::future<Gadget*> seen[4];
    for (auto& gadget : seen) {
        gadget = std::async(std::launch::async, Gadget::GetInstance);
    }
    for (auto& gadget : seen) {
        EXPECT_EQ(gadget.get(), Gadget::GetInstance());
    }
    EXPECT_EQ(Gadget::sm_attempts, 2);
}

TEST(MonotonicTime, CarriesNanosecondsIntoSeconds) {
    const strata::monotonic_time time{10, 600'000'000};
    EXPECT_EQ(time + microseconds(1'500'000), (strata::monotonic_time{12, 100'000'000}));
    EXPECT_EQ(time + microseconds(399'999), (strata::monotonic_time{10, 999'999'000}));
    EXPECT_EQ(time + microseconds(400'000), (strata::monotonic_time{11, 0}));
}

TEST(ConditionVariable, TimesOutAtItsDeadlineAndNotBefore) {
    strata::condition_variable condition;
    boost::mutex mutex;
    boost::unique_lock lock(mutex);
    const auto deadline = strata::get_monotonic_time() + microseconds(20'000);
    while (condition.do_wait_until(lock, deadline)) {
    }
    EXPECT_GE(strata::get_monotonic_time(), deadline);
    EXPECT_TRUE(lock.owns_lock());
    EXPECT_FALSE(condition.do_wait_until(lock, {0, 0}));
}

TEST(ConditionVariable, NotifyWakesAWaiterThatHoldsItsLockAgain) {
    strata::condition_variable condition;
    boost::mutex mutex;
    bool ready = false;
    boost::unique_lock lock(mutex);
    boost::thread notifier([&] {
        const boost::lock_guard guard(mutex);
        ready = true;
        condition.notify_one();
    });
    while (!ready) {
        ASSERT_TRUE(condition.do_wait_until(lock, strata::get_monotonic_time() + AN_HOUR));
    }
    EXPECT_TRUE(lock.owns_lock());
    lock.unlock();
    notifier.join();
}

TEST(ConditionVariable, InterruptionEndsAWaitThatHasBegunOrIsAboutTo) {
    for (const bool begun : {true, false}) {
        strata::condition_variable condition;
        boost::mutex mutex;
        bool waiting = false;
        bool lockHeld = false;
        boost::unique_lock hold(mutex);
        boost::thread waiter([&] {
            boost::unique_lock lock(mutex);
            waiting = true;
            try {
                for (;;) {
                    condition.do_wait_until(lock, strata::get_monotonic_time() + AN_HOUR);
                }
            } catch (const boost::thread_interrupted&) {
                lockHeld = lock.owns_lock();
            }
        });
        // Once it has set the flag, the waiter leaves the mutex only by waiting.
        while (begun && !waiting) {
            hold.unlock();
            boost::this_thread::yield();
            hold.lock();
        }
        waiter.interrupt();
        hold.unlock();
        waiter.join();
        EXPECT_TRUE(lockHeld);
    }
}

}  // namespace
