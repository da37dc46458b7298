// How fast event loops are: PollThread, what a user would pick instead, and the floor. Of each loop:
//
// - dispatch/1of2, 1of8, 1of32, 8of8: processor time of the loop's thread for a callback, with so many of so
//   many descriptors ready. The callback reads its eventfd and makes the next one ready, so that every loop
//   comes with the same three system calls where one is ready: wait, read, write.
//
// There is a program for each library. Run one loop in a process, by a filter where a program has several.
//
// usage: PROGRAM [--benchmark_filter=^LOOP/] [Google Benchmark's options]
//        PROGRAM --count LOOP CALLBACKS   nothing but callbacks, one of two ready, for strace to count
//
// The latter prints the allocations a callback.

#include <benchmark/benchmark.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <deque>

#include "bench/allocation_count.h"
#include "bench/event_loop.h"
#include "bench/run_benchmarks.h"
#include "lib/platform/errno_exception.h"
#include "lib/platform/monotonic_time.h"
#include "lib/platform/unique_fd.h"

namespace {

constexpr std::int64_t WARM_UP = 1000;  // callbacks that are not counted

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
    loop->Run();
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

template <class... Arguments>
void Register(const LoopKind& kind, const char* what,
              void (*run)(benchmark::State&, const LoopKind&, Arguments...), std::int64_t iterations,
              Arguments... arguments) {
    auto* const registered =
        benchmark::RegisterBenchmark((kind.name + "/" + what).c_str(),
                                     [=, &kind](benchmark::State& state) { run(state, kind, arguments...); });
    registered->UseManualTime();
    if (iterations != 0) {
        registered->Iterations(iterations);
    }
}

void RegisterAll() {
    constexpr std::int64_t AS_MANY_AS_NEEDED = 0;
    for (const LoopKind& kind : LoopKind::All()) {
        Register<std::size_t, bool>(kind, "dispatch/1of2", BenchDispatch, AS_MANY_AS_NEEDED, 2, false);
        Register<std::size_t, bool>(kind, "dispatch/1of8", BenchDispatch, AS_MANY_AS_NEEDED, 8, false);
        Register<std::size_t, bool>(kind, "dispatch/1of32", BenchDispatch, AS_MANY_AS_NEEDED, 32, false);
        Register<std::size_t, bool>(kind, "dispatch/8of8", BenchDispatch, AS_MANY_AS_NEEDED, 8, true);
    }
}

/// For strace: nothing but callbacks.
int Count(const std::string& name, std::int64_t callbacks) {
    for (const LoopKind& kind : LoopKind::All()) {
        if (kind.name == name) {
            const Dispatch dispatch = RunDispatch(kind, 2, false, callbacks);
            std::printf("%.4f\n", static_cast<double>(dispatch.allocations) / static_cast<double>(callbacks));
            return 0;
        }
    }
    std::fprintf(stderr, "no loop %s\n", name.c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && argv[1] == std::string("--count")) {
        return Count(argv[2], std::atoll(argv[3]));
    }
    return RunBenchmarks(argc, argv, RegisterAll);
}
