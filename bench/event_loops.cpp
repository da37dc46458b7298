// How fast event loops are: PollThread, what a user would pick instead, and the floor. Of each loop:
//
// - dispatch/1of2, 1of8, 1of32, 8of8: processor time of the loop's thread for a callback, with so many of so
//   many descriptors ready. The callback reads its eventfd and makes the next one ready, so that every loop
//   comes with the same three system calls where one is ready: wait, read, write.
// - timer: how late a timer fires that is due in 0.2 to 1.2 ms (p50, p99).
// - timers: processor time to add 1,000 timers from a callback, in no order, and fire them; for one of them.
// - call/idle, call/busy: time from a call by another thread to its callback (p50, p99), while the loop
//   sleeps, and while it serves a descriptor that is always ready.
//
// There is a program for each library. Run one loop in a process, by a filter where a program has several.
//
// usage: PROGRAM [--brief] [--benchmark_filter=^LOOP/] [Google Benchmark's options]
//        PROGRAM --count LOOP CALLBACKS   nothing but callbacks, one of two ready, for strace to count
//
// The latter prints the allocations a callback.

#include <benchmark/benchmark.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <exception>
#include <optional>
#include <random>
#include <string_view>
#include <thread>

#include "bench/allocation_count.h"
#include "bench/event_loop.h"
#include "bench/run_benchmarks.h"
#include "lib/platform/errno_exception.h"
#include "lib/platform/monotonic_time.h"
#include "lib/platform/unique_fd.h"

namespace {

using strata::get_monotonic_nanoseconds;

constexpr std::int64_t WARM_UP = 1000;  // callbacks that are not counted
constexpr std::int64_t MANY_TIMERS = 1000;

// How many are waited for; few for a brief run.
std::size_t lateTimers = 400;
std::size_t calls = 1000;

std::int64_t ThreadTime() {
    timespec time{};
    if (clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time) != 0) {
        throw ErrnoException(errno, "clock_gettime");
    }
    return time.tv_sec * strata::NANOSECONDS_PER_SECOND + time.tv_nsec;
}

double Seconds(std::int64_t nanoseconds) {
    return static_cast<double>(nanoseconds) / static_cast<double>(strata::NANOSECONDS_PER_SECOND);
}

/// An eventfd as a client.
class EventClient : public Client {
public:
    explicit EventClient(unsigned initially = 0) : m_event(eventfd(initially, EFD_CLOEXEC)) {
        if (m_event.Get() < 0) {
            throw ErrnoException(errno, "eventfd");
        }
    }

    int GetFd() const override { return m_event.Get(); }
    void OnReady() override {}  // stays ready

    void MakeReady() {
        if (eventfd_write(m_event.Get(), 1) != 0) {
            throw ErrnoException(errno, "eventfd_write");
        }
    }

protected:
    void TakeBack() {
        eventfd_t ignored;
        if (eventfd_read(m_event.Get(), &ignored) != 0) {
            throw ErrnoException(errno, "eventfd_read");
        }
    }

private:
    const strata::UniqueFd m_event;
};

/// Runs a loop on a thread of its own beside this one, as in a program: in a process of a single thread the
/// kernel's way to a descriptor is shorter.
void RunOnThread(Loop& loop) {
    std::thread([&] { loop.Run(); }).join();
}

/// Lets callbacks follow each other and measures them, on the loop's thread.
struct Dispatch {
    Loop& loop;
    const std::int64_t callbacks;  ///< to be measured
    std::int64_t count = -WARM_UP;
    std::int64_t threadTime = 0;  ///< in the end, that of all callbacks
    std::uint64_t allocations = 0;

    /// @return whether there is more to come
    bool OnCallback() {
        if (++count == 0) {
            threadTime = ThreadTime();
            allocations = CountAllocations();
        } else if (count == callbacks) {
            threadTime = ThreadTime() - threadTime;
            allocations = CountAllocations() - allocations;
            loop.Stop();
        }
        return count < callbacks;
    }
};

/// Takes its event, and makes the next one ready.
class RingClient : public EventClient {
public:
    explicit RingClient(Dispatch& dispatch) : m_dispatch(dispatch) {}
    void SetNext(RingClient& next) { m_next = &next; }

    void OnReady() override {
        TakeBack();
        if (m_dispatch.OnCallback()) {
            m_next->MakeReady();
        }
    }

private:
    Dispatch& m_dispatch;
    RingClient* m_next = this;
};

/// Runs a loop with so many descriptors; one of them is ready at a time, or all are.
Dispatch RunDispatch(const LoopKind& kind, std::size_t descriptors, bool allReady, std::int64_t callbacks) {
    std::deque<RingClient> ring;
    const auto loop = kind.make();
    Dispatch dispatch{*loop, callbacks};
    for (std::size_t i = 0; i < descriptors; ++i) {
        loop->Watch(ring.emplace_back(dispatch));
    }
    for (std::size_t i = 0; i < descriptors; ++i) {
        if (allReady) {
            ring[i].MakeReady();  // and again by itself
        } else {
            ring[i].SetNext(ring[(i + 1) % descriptors]);
        }
    }
    if (!allReady) {
        ring[0].MakeReady();
    }
    RunOnThread(*loop);
    return dispatch;
}

void BenchDispatch(benchmark::State& state, const LoopKind& kind, std::size_t descriptors, bool allReady) {
    const auto callbacks = static_cast<std::int64_t>(state.max_iterations);
    const Dispatch dispatch = RunDispatch(kind, descriptors, allReady, callbacks);
    while (state.KeepRunningBatch(callbacks)) {
        state.SetIterationTime(Seconds(dispatch.threadTime));
    }
    state.counters["allocations"] =
        static_cast<double>(dispatch.allocations) / static_cast<double>(callbacks);
}

/// Reports the middle and the last percent of a number of times.
void ReportTimes(benchmark::State& state, std::vector<std::int64_t> times) {
    std::sort(times.begin(), times.end());
    const auto at = [&](double share) {
        return times[static_cast<std::size_t>(share * static_cast<double>(times.size() - 1))];
    };
    while (state.KeepRunningBatch(static_cast<std::int64_t>(times.size()))) {
        state.SetIterationTime(Seconds(at(0.5)) * static_cast<double>(times.size()));
    }
    state.counters["p50"] = static_cast<double>(at(0.5));
    state.counters["p99"] = static_cast<double>(at(0.99));
}

/// Sets itself again and again, and notes how late it was.
class LateAlarm : public Alarm {
public:
    explicit LateAlarm(Loop& loop) : m_loop(loop) { m_lateness.reserve(lateTimers); }

    void Start() {
        m_deadline =
            get_monotonic_nanoseconds() + 200'000 + static_cast<std::int64_t>(m_random() % 1'000'000);
        m_loop.AddTimer(*this, m_deadline);
    }

    void OnTime() override {
        m_lateness.push_back(get_monotonic_nanoseconds() - m_deadline);
        if (m_lateness.size() < lateTimers) {
            Start();
        } else {
            m_loop.Stop();
        }
    }

    const std::vector<std::int64_t>& GetLateness() const { return m_lateness; }

private:
    Loop& m_loop;
    std::minstd_rand m_random;
    std::int64_t m_deadline = 0;
    std::vector<std::int64_t> m_lateness;
};

/// Runs a function once, on the loop's thread.
class Starter : public EventClient {
public:
    explicit Starter(std::function<void()> start) : m_start(std::move(start)) { MakeReady(); }
    void OnReady() override {
        TakeBack();
        m_start();
    }

private:
    const std::function<void()> m_start;
};

void BenchTimer(benchmark::State& state, const LoopKind& kind) {
    auto loop = kind.make();
    LateAlarm alarm(*loop);
    Starter starter([&] { alarm.Start(); });
    loop->Watch(starter);
    RunOnThread(*loop);
    loop.reset();  // before those that it serves
    ReportTimes(state, alarm.GetLateness());
}

/// Counts how often it fires, up to the last time.
class CountingAlarm : public Alarm {
public:
    explicit CountingAlarm(Loop& loop) : m_loop(loop) {}

    void OnTime() override {
        if (++m_fired == MANY_TIMERS) {
            m_end = ThreadTime();
            m_loop.Stop();
        }
    }

    std::int64_t GetEnd() const { return m_end; }

private:
    Loop& m_loop;
    std::int64_t m_fired = 0;
    std::int64_t m_end = 0;
};

void BenchManyTimers(benchmark::State& state, const LoopKind& kind) {
    auto loop = kind.make();
    CountingAlarm alarm(*loop);
    std::int64_t start = 0;
    Starter starter([&] {
        start = ThreadTime();
        const std::int64_t first = get_monotonic_nanoseconds() + 2'000'000;
        for (std::int64_t i = 0; i < MANY_TIMERS; ++i) {
            constexpr std::int64_t STRIDE = 617;  // has no factor in common with their number
            loop->AddTimer(alarm, first + i * STRIDE % MANY_TIMERS * 1000);
        }
    });
    loop->Watch(starter);
    RunOnThread(*loop);
    loop.reset();  // before those that it serves
    while (state.KeepRunningBatch(MANY_TIMERS)) {
        state.SetIterationTime(Seconds(alarm.GetEnd() - start));
    }
}

/// Tells another thread when it was called.
class CalledClient : public EventClient {
public:
    CalledClient() : EventClient(1) {}

    void OnReady() override {
        const std::int64_t now = get_monotonic_nanoseconds();
        m_called = now;
        m_called.notify_one();
    }

    /// @return how long it took until a call came
    std::int64_t Time(Loop& loop) {
        m_called = 0;
        const std::int64_t start = get_monotonic_nanoseconds();
        loop.Call(*this);
        m_called.wait(0);
        return m_called - start;
    }

private:
    std::atomic<std::int64_t> m_called{0};
};

/// Ends a loop when it is called.
class StoppingClient : public EventClient {
public:
    explicit StoppingClient(Loop& loop) : EventClient(1), m_loop(loop) {}
    void OnReady() override { m_loop.Stop(); }

private:
    Loop& m_loop;
};

void BenchCall(benchmark::State& state, const LoopKind& kind, bool busy) {
    std::vector<std::int64_t> times;
    times.reserve(calls);
    std::optional<EventClient> alwaysReady;
    CalledClient called;
    auto loop = kind.make();
    if (busy) {
        loop->Watch(alwaysReady.emplace(1));
    }
    StoppingClient stopping(*loop);
    std::thread caller([&] {
        while (times.size() < calls) {
            std::this_thread::sleep_for(std::chrono::microseconds(20));
            times.push_back(called.Time(*loop));
        }
        loop->Call(stopping);
    });
    RunOnThread(*loop);
    caller.join();
    loop.reset();  // before those that it serves
    ReportTimes(state, times);
}

template <class... Arguments>
void Register(const LoopKind& kind, const char* what,
              void (*run)(benchmark::State&, const LoopKind&, Arguments...), std::size_t iterations,
              Arguments... arguments) {
    auto* const registered =
        benchmark::RegisterBenchmark((kind.name + "/" + what).c_str(),
                                     [=, &kind](benchmark::State& state) { run(state, kind, arguments...); });
    registered->UseManualTime();
    if (iterations != 0) {
        registered->Iterations(static_cast<std::int64_t>(iterations));
    }
}

void RegisterAll() {
    constexpr std::size_t AS_MANY_AS_NEEDED = 0;
    for (const LoopKind& kind : LoopKind::All()) {
        Register<std::size_t, bool>(kind, "dispatch/1of2", BenchDispatch, AS_MANY_AS_NEEDED, 2, false);
        Register<std::size_t, bool>(kind, "dispatch/1of8", BenchDispatch, AS_MANY_AS_NEEDED, 8, false);
        Register<std::size_t, bool>(kind, "dispatch/1of32", BenchDispatch, AS_MANY_AS_NEEDED, 32, false);
        Register<std::size_t, bool>(kind, "dispatch/8of8", BenchDispatch, AS_MANY_AS_NEEDED, 8, true);
        Register<>(kind, "timer", BenchTimer, lateTimers);
        Register<>(kind, "timers", BenchManyTimers, static_cast<std::size_t>(MANY_TIMERS));
        if (kind.make()->CanBeCalled()) {
            Register<bool>(kind, "call/idle", BenchCall, calls, false);
            Register<bool>(kind, "call/busy", BenchCall, calls, true);
        }
    }
}

/// For strace: nothing but callbacks.
int Count(const char* name, std::int64_t callbacks) {
    try {
        for (const LoopKind& kind : LoopKind::All()) {
            if (kind.name == name) {
                const Dispatch dispatch = RunDispatch(kind, 2, false, callbacks);
                std::printf("%.4f\n",
                            static_cast<double>(dispatch.allocations) / static_cast<double>(callbacks));
                return 0;
            }
        }
        std::fprintf(stderr, "no loop %s\n", name);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", name, failure.what());
    }
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && argv[1] == std::string_view("--count")) {
        return Count(argv[2], std::atoll(argv[3]));
    }
    if (argc > 1 && argv[1] == std::string_view("--brief")) {
        lateTimers = calls = 20;
        argv[1] = argv[0];
        return RunBenchmarks(argc - 1, argv + 1, RegisterAll);
    }
    return RunBenchmarks(argc, argv, RegisterAll);
}
