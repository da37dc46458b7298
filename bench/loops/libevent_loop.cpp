// libevent, with its locks for calls from other threads.

#include <event2/event.h>
#include <event2/thread.h>
#include <sys/time.h>

#include <algorithm>
#include <stdexcept>

#include "bench/event_loop.h"
#include "lib/platform/monotonic_time.h"

namespace {

class LibeventLoop : public Loop {
public:
    LibeventLoop() {
        if (evthread_use_pthreads() != 0) {
            throw std::runtime_error("evthread_use_pthreads");
        }
        event_config* const config = event_config_new();
        event_config_set_flag(config, EVENT_BASE_FLAG_PRECISE_TIMER);
        m_base = event_base_new_with_config(config);
        event_config_free(config);
        if (m_base == nullptr) {
            throw std::runtime_error("event_base_new_with_config");
        }
    }

    ~LibeventLoop() override {
        for (event* const watched : m_events) {
            event_free(watched);
        }
        event_base_free(m_base);
    }

    void Watch(Client& client) override {
        m_events.push_back(event_new(
            m_base, client.GetFd(), EV_READ | EV_PERSIST,
            [](evutil_socket_t, short, void* watched) { static_cast<Client*>(watched)->OnReady(); },
            &client));
        event_add(m_events.back(), nullptr);
    }

    void AddTimer(Alarm& alarm, std::int64_t deadline) override {
        const std::int64_t remaining =
            std::max<std::int64_t>(0, deadline - strata::get_monotonic_nanoseconds()) / 1000;
        const timeval delay{remaining / 1'000'000, remaining % 1'000'000};
        event_base_once(
            m_base, -1, EV_TIMEOUT,
            [](evutil_socket_t, short, void* fired) { static_cast<Alarm*>(fired)->OnTime(); }, &alarm,
            &delay);
    }

    void Call(Client& client) override {
        event_base_once(
            m_base, -1, EV_TIMEOUT,
            [](evutil_socket_t, short, void* called) { static_cast<Client*>(called)->OnReady(); }, &client,
            nullptr);
    }

    void Run() override { event_base_loop(m_base, EVLOOP_NO_EXIT_ON_EMPTY); }
    void Stop() override { event_base_loopbreak(m_base); }

private:
    event_base* m_base;
    std::vector<event*> m_events;
};

const RegisteredLoop<LibeventLoop> KIND("libevent");

}  // namespace
