// libuv.

#include <uv.h>

#include <deque>
#include <stdexcept>

#include "bench/event_loop.h"
#include "lib/platform/monotonic_time.h"

namespace {

void Check(int result) {
    if (result < 0) {
        throw std::runtime_error(uv_strerror(result));
    }
}

class LibuvLoop : public Loop {
public:
    LibuvLoop() {
        Check(uv_loop_init(&m_loop));
        Check(uv_async_init(&m_loop, &m_wake,
                            [](uv_async_t* wake) { static_cast<CallQueue*>(wake->data)->Serve(); }));
        m_wake.data = &m_calls;
    }

    ~LibuvLoop() override {
        uv_walk(
            &m_loop, [](uv_handle_t* handle, void*) { uv_close(handle, nullptr); }, nullptr);
        uv_run(&m_loop, UV_RUN_DEFAULT);
        uv_loop_close(&m_loop);
    }

    void Watch(Client& client) override {
        uv_poll_t& poll = m_polls.emplace_back();
        Check(uv_poll_init(&m_loop, &poll, client.GetFd()));
        poll.data = &client;
        Check(uv_poll_start(&poll, UV_READABLE, [](uv_poll_t* handle, int, int) {
            static_cast<Client*>(handle->data)->OnReady();
        }));
    }

    void AddTimer(Alarm& alarm, std::int64_t deadline) override {
        // It counts milliseconds from the start of the iteration.
        constexpr std::int64_t MILLISECOND = strata::NANOSECONDS_PER_SECOND / 1000;
        uv_update_time(&m_loop);
        const std::int64_t remaining = deadline - strata::get_monotonic_nanoseconds();
        auto* const timer = new uv_timer_t;
        Check(uv_timer_init(&m_loop, timer));
        timer->data = &alarm;
        Check(uv_timer_start(
            timer, OnTimer,
            remaining > 0 ? static_cast<std::uint64_t>((remaining + MILLISECOND - 1) / MILLISECOND) : 0, 0));
    }

    void Call(Client& client) override {
        m_calls.Add(client);
        Check(uv_async_send(&m_wake));
    }

    void Run() override { uv_run(&m_loop, UV_RUN_DEFAULT); }
    void Stop() override { uv_stop(&m_loop); }

private:
    static void OnTimer(uv_timer_t* timer) {
        static_cast<Alarm*>(timer->data)->OnTime();
        uv_close(reinterpret_cast<uv_handle_t*>(timer),
                 [](uv_handle_t* handle) { delete reinterpret_cast<uv_timer_t*>(handle); });
    }

    uv_loop_t m_loop{};
    uv_async_t m_wake{};
    CallQueue m_calls;
    std::deque<uv_poll_t> m_polls;
};

const RegisteredLoop<LibuvLoop> KIND("libuv");

}  // namespace
