// The poll thread: clients, timers, and what other threads may rely on.

#include "lib/platform/poll_thread.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "lib/platform/unique_fd.h"
#include "tests/console_report.h"
#include "tests/poll_iteration.h"

namespace {

std::int64_t Now() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// A client on a pipe of its own, which runs a function on activity.
class PipeClient : public Pollable {
public:
    explicit PipeClient(std::function<void(short)> onActivity) : m_onActivity(std::move(onActivity)) {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        m_readEnd.Reset(ends[0]);
        m_writeEnd.Reset(ends[1]);
    }
    int GetFd() override { return m_readEnd.Get(); }
    void OnActivity(short revents) override { m_onActivity(revents); }

    void MakeReady() { ASSERT_EQ(write(m_writeEnd.Get(), "x", 1), 1); }
    void HangUp() { m_writeEnd.Reset(); }
    void Drain() {
        char byte;
        ASSERT_EQ(read(m_readEnd.Get(), &byte, 1), 1);
    }

private:
    strata::UniqueFd m_readEnd;
    strata::UniqueFd m_writeEnd;
    std::function<void(short)> m_onActivity;
};

TEST(PollThread, ServesClientsOnAThreadOfItsOwnNameUntilDetached) {
    PollThread thread;
    std::string name(16, '\0');
    int calls = 0;
    PipeClient client([&](short) {
        client.Drain();
        prctl(PR_GET_NAME, name.data());
        ++calls;
    });
    thread.Attach(&client, POLLIN);
    client.MakeReady();
    WaitForAnIteration(thread);
    EXPECT_STREQ(name.c_str(), "vtpoll");
    EXPECT_EQ(calls, 1);

    thread.Detach(&client);
    client.MakeReady();
    WaitForAnIteration(thread);
    EXPECT_EQ(calls, 1);
    thread.Detach(&client);
}

TEST(PollThread, PollsForWhatIsAskedAndPassesOnAHangUpThatNobodyAskedFor) {
    PollThread thread;
    std::vector<short> events;
    PipeClient client([&](short revents) {
        events.push_back(revents);
        if (revents == POLLIN) {
            client.Drain();
        } else {
            thread.Detach(&client);
        }
    });
    thread.Attach(&client, 0);
    client.MakeReady();
    WaitForAnIteration(thread);
    EXPECT_EQ(events, std::vector<short>{});
    thread.ChangeEvents(&client, POLLIN);
    WaitForAnIteration(thread);
    EXPECT_EQ(events, std::vector<short>{POLLIN});
    thread.ChangeEvents(&client, 0);
    WaitForAnIteration(thread);
    client.MakeReady();
    client.HangUp();
    WaitForAnIteration(thread);
    EXPECT_EQ(events, (std::vector<short>{POLLIN, POLLHUP}));
}

TEST(PollThread, DetachedClientGetsNoCallbackInTheSameIteration) {
    PollThread thread;
    std::string served;
    PipeClient third([&](short) {
        third.Drain();
        served += '3';
    });
    PipeClient second([&](short) { served += '2'; });
    PipeClient first([&](short) {
        first.Drain();
        served += '1';
        thread.Detach(&second);
    });
    // The thread's own client stands before these.
    WaitForAnIteration(thread);
    {
        // All become ready in one iteration.
        const auto blocked = thread.BlockCallbacks();
        for (PipeClient* client : {&first, &second, &third}) {
            thread.Attach(client, POLLIN);
            client->MakeReady();
        }
    }
    WaitForAnIteration(thread);
    thread.Detach(&first);
    thread.Detach(&third);
    EXPECT_EQ(served, "13");
}

TEST(PollThread, TimersComeBeforeDescriptorsAndTheWalkGoesOnBehindTheFiredOne) {
    PollThread thread;
    std::string order;
    PipeClient client([&](short) {
        client.Drain();
        order += 'd';
    });
    Alarm alarm([&](std::uintptr_t argument) {
        order += static_cast<char>(argument);
        if (argument == '1') {
            // Ahead of the timer that fires: for the next iteration. Behind it: still in this one.
            thread.AddTimer(&alarm, &Alarm::OnTimer, 'a', 1);
            thread.AddTimer(&alarm, &Alarm::OnTimer, 'b', 2);
        }
    });
    WaitForAnIteration(thread);
    {
        const auto blocked = thread.BlockCallbacks();
        thread.Attach(&client, POLLIN);
        client.MakeReady();
        thread.AddTimer(&alarm, &Alarm::OnTimer, '1', 2);
        thread.AddTimer(&alarm, &Alarm::OnTimer, '2', 3);
    }
    WaitForAnIteration(thread);
    thread.Detach(&client);
    EXPECT_EQ(order, "1b2da");
}

TEST(PollThread, TimersFireAfterTheirDeadlineInOrder) {
    PollThread thread;
    std::vector<std::uintptr_t> fired;
    bool early = false;
    std::promise<void> done;
    const std::int64_t deadline = Now() + 20'000'000;
    Alarm alarm([&](std::uintptr_t argument) {
        early = early || Now() <= deadline;
        fired.push_back(argument);
        if (fired.size() == 3) {
            done.set_value();
        }
    });
    thread.AddTimer(&alarm, &Alarm::OnTimer, 3, deadline + 1);
    thread.AddTimer(&alarm, &Alarm::OnTimer, 1, deadline);
    thread.AddTimer(&alarm, &Alarm::OnTimer, 2, deadline);
    done.get_future().wait();
    const auto blocked = thread.BlockCallbacks();
    EXPECT_EQ(fired, (std::vector<std::uintptr_t>{1, 2, 3}));
    EXPECT_FALSE(early);
}

TEST(PollThread, RemoveTimerMatchesObjectCallbackAndArgument) {
    PollThread thread;
    std::vector<std::uintptr_t> fired;
    Alarm alarm([&](std::uintptr_t argument) { fired.push_back(argument); });
    Alarm other([&](std::uintptr_t) { fired.push_back(0); });
    {
        const auto blocked = thread.BlockCallbacks();
        const std::int64_t due = Now();
        thread.AddTimer(&alarm, &Alarm::OnTimer, 1, due);
        thread.AddTimer(&alarm, &Alarm::OnTimer, 2, due);
        thread.AddTimer(&other, &Alarm::OnTimer, 1, due);
        thread.RemoveTimer(&other, &Alarm::OnTimer, 1);
        thread.RemoveTimer(&alarm, &Alarm::OnTimer, 1);
        thread.RemoveTimer(&alarm, &Alarm::OnTimer, 7);
        thread.RemoveTimer(&alarm, &Alarm::OnOtherTimer, 2);
    }
    WaitForAnIteration(thread);
    EXPECT_EQ(fired, std::vector<std::uintptr_t>{2});
}

TEST(PollThread, ATimerMayAddItselfAgainAndDispatchesVirtually) {
    struct Derived : Alarm {
        using Alarm::Alarm;
        void OnTimer(std::uintptr_t argument) override { Alarm::OnTimer(argument + 100); }
    };
    PollThread thread;
    std::vector<std::uintptr_t> fired;
    Derived alarm([&](std::uintptr_t argument) {
        fired.push_back(argument);
        if (fired.size() == 1) {
            thread.AddTimer<Alarm>(&alarm, &Alarm::OnTimer, 1, 0);
        }
    });
    thread.AddTimer<Alarm>(&alarm, &Alarm::OnTimer, 1, 0);
    WaitForAnIteration(thread);
    EXPECT_EQ(fired, (std::vector<std::uintptr_t>{101, 101}));
}

TEST(PollThread, OtherThreadsGetTheirTurnWhileADescriptorStaysReady) {
    PollThread thread;
    std::atomic<long> calls{0};
    PipeClient busy([&](short) {
        const std::int64_t end = Now() + 20'000;
        while (Now() < end) {
        }
        ++calls;
    });
    busy.MakeReady();
    thread.Attach(&busy, POLLIN);

    // With an unfair mutex the thread wins it back nearly every time, for tens of calls; with a fair one for
    // one or two. A busy machine may have this thread stand still for as long as that, but not every time.
    constexpr int TURNS = 50;
    constexpr long MANY_CALLS = 5;
    Alarm alarm([](std::uintptr_t) {});
    int longWaits = 0;
    for (int i = 0; i < TURNS; ++i) {
        for (const long seen = calls; calls == seen;) {
        }
        // Now the thread holds the mutex, or is about to take it.
        const long before = calls;
        thread.AddTimer(&alarm, &Alarm::OnTimer, 0, INT64_MAX);
        longWaits += calls - before > MANY_CALLS;
        thread.RemoveTimer(&alarm, &Alarm::OnTimer, 0);
    }
    thread.Detach(&busy);
    EXPECT_LT(longWaits, TURNS / 2);
}

TEST(PollThread, HoldsTwoHundredAndFiftyFourClientsBesideItsOwn) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    PollThread thread;
    std::vector<std::unique_ptr<PipeClient>> clients;
    for (int i = 0; i < 254; ++i) {
        clients.push_back(std::make_unique<PipeClient>([](short) {}));
        thread.Attach(clients.back().get(), POLLIN);
    }
    WaitForAnIteration(thread);
    EXPECT_ABORT(
        "PollThread exceeded maximum number of clients\\. Client dump:\n.*"
        "  0x[0-9a-f]+:0x[0-9a-f]+ \\([^\n]*PollableWaker[^\n]*\\)\n.*"
        "ASSERT FAILED: m_clients\\.size\\(\\) < MAX_CLIENTS\r\nlib/platform/poll_thread\\.cpp:214:"
        "void PollThread::Attach\\(Pollable\\*, short int\\)\r\n",
        thread.Attach(clients[0].get(), POLLIN));
    for (const auto& client : clients) {
        thread.Detach(client.get());
    }
}

TEST(PollThreadDeathTest, EndsTheProcessWhenSomethingIsLeftBehind) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    PipeClient client([](short) {});
    Alarm alarm([](std::uintptr_t) {});
    EXPECT_ABORT(
        "PollThread client still attached: 0x[0-9a-f]+\nPoll thread exiting with 1 clients still "
        "present:\n\r\nASSERT FAILED: false\r\nlib/platform/poll_thread\\.cpp:173:void "
        "PollThread::Run\\(\\)\r\n",
        PollThread().Attach(&client, POLLIN));
    EXPECT_ABORT(
        "Poll thread exiting with 1 timer clients still present:\n\r\nASSERT FAILED: false\r\n"
        "lib/platform/poll_thread\\.cpp:179:void PollThread::Run\\(\\)\r\n",
        PollThread().AddTimer(&alarm, &Alarm::OnTimer, 0, INT64_MAX));
    EXPECT_ABORT("ASSERT FAILED: false\r\nlib/platform/poll_thread\\.h:34:", client.Pollable::OnActivity());
}

TEST(PollThreadDeathTest, EndsTheProcessWhenACallbackCancelsItsOwnTimer) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto cancelItself = [](bool afterAddingItAgain) {
        PollThread thread;
        Alarm alarm([&](std::uintptr_t) {
            if (afterAddingItAgain) {
                thread.AddTimer(&alarm, &Alarm::OnTimer, 0, INT64_MAX);
            }
            thread.RemoveTimer(&alarm, &Alarm::OnTimer, 0);
        });
        thread.AddTimer(&alarm, &Alarm::OnTimer, 0, 0);
        WaitForAnIteration(thread);
    };
    for (const bool afterAddingItAgain : {false, true}) {
        EXPECT_ABORT(
            "ASSERT FAILED: &\\*found != m_firedTimer\r\nlib/platform/poll_thread\\.cpp:[0-9]+:void "
            "PollThread::RemoveTimerEntry\\(",
            cancelItself(afterAddingItAgain));
    }
}

#if defined(__SANITIZE_THREAD__)
TEST(FairRecursiveMutexDeathTest, TheThreadSanitizerSeesTheOrderOfLocks) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    constexpr int STATUS_OF_A_FINDING = 66;
    const auto lockBothWays = [] {
        strata::FairRecursiveMutex first, second;
        for (const auto& [outer, inner] : {std::pair(&first, &second), std::pair(&second, &first)}) {
            const std::lock_guard outerLock(*outer);
            const std::lock_guard innerLock(*inner);
        }
        std::exit(EXIT_SUCCESS);
    };
    EXPECT_EXIT(lockBothWays(), testing::ExitedWithCode(STATUS_OF_A_FINDING), "lock-order-inversion");
}
#endif

}  // namespace
