// libev.

#include <ev.h>

#include <deque>
#include <stdexcept>

#include "bench/event_loop.h"
#include "lib/platform/monotonic_time.h"

namespace {

class LibevLoop : public Loop {
public:
    LibevLoop() : m_loop(ev_loop_new(EVFLAG_AUTO)) {
        if (m_loop == nullptr) {
            throw std::runtime_error("ev_loop_new");
        }
        ev_async_init(&m_wake, [](struct ev_loop*, ev_async* wake, int) {
            static_cast<CallQueue*>(wake->data)->Serve();
        });
        m_wake.data = &m_calls;
        ev_async_start(m_loop, &m_wake);
    }

    ~LibevLoop() override { ev_loop_destroy(m_loop); }

    void Watch(Client& client) override {
        ev_io& io = m_ios.emplace_back();
        ev_io_init(
            &io, [](struct ev_loop*, ev_io* watcher, int) { static_cast<Client*>(watcher->data)->OnReady(); },
            client.GetFd(), EV_READ);
        io.data = &client;
        ev_io_start(m_loop, &io);
    }

    void AddTimer(Alarm& alarm, std::int64_t deadline) override {
        // It counts from the start of the iteration.
        ev_now_update(m_loop);
        const double delay = static_cast<double>(deadline - strata::get_monotonic_nanoseconds()) /
                             static_cast<double>(strata::NANOSECONDS_PER_SECOND);
        auto* const timer = new ev_timer;
        ev_timer_init(
            timer,
            [](struct ev_loop*, ev_timer* fired, int) {
                static_cast<Alarm*>(fired->data)->OnTime();
                delete fired;
            },
            delay, 0.);
        timer->data = &alarm;
        ev_timer_start(m_loop, timer);
    }

    void Call(Client& client) override {
        m_calls.Add(client);
        ev_async_send(m_loop, &m_wake);
    }

    void Run() override { ev_run(m_loop, 0); }
    void Stop() override { ev_break(m_loop, EVBREAK_ALL); }

private:
    struct ev_loop* m_loop;
    ev_async m_wake{};
    CallQueue m_calls;
    std::deque<ev_io> m_ios;
};

const RegisteredLoop<LibevLoop> KIND("libev");

}  // namespace
