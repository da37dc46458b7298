// Asio on its own, without Boost.

#include <asio.hpp>
#include <chrono>
#include <deque>
#include <memory>
#include <system_error>

#include "bench/event_loop.h"

namespace {

class AsioLoop : public Loop {
public:
    ~AsioLoop() override {
        for (asio::posix::stream_descriptor& descriptor : m_descriptors) {
            descriptor.release();  // its client closes it
        }
    }

    void Watch(Client& client) override {
        Await(m_descriptors.emplace_back(m_context, client.GetFd()), client);
    }

    void AddTimer(Alarm& alarm, std::int64_t deadline) override {
        const std::chrono::steady_clock::time_point point{std::chrono::nanoseconds(deadline)};
        const auto timer = std::make_shared<asio::steady_timer>(m_context, point);
        timer->async_wait([timer, &alarm](const std::error_code& failure) {
            if (!failure) {
                alarm.OnTime();
            }
        });
    }

    void Call(Client& client) override {
        asio::post(m_context, [&client] { client.OnReady(); });
    }

    void Run() override {
        const auto work = asio::make_work_guard(m_context);
        m_context.run();
    }

    void Stop() override { m_context.stop(); }

private:
    static void Await(asio::posix::stream_descriptor& descriptor, Client& client) {
        descriptor.async_wait(asio::posix::stream_descriptor::wait_read,
                              [&descriptor, &client](const std::error_code& failure) {
                                  if (!failure) {
                                      client.OnReady();
                                      Await(descriptor, client);
                                  }
                              });
    }

    asio::io_context m_context;
    std::deque<asio::posix::stream_descriptor> m_descriptors;
};

const RegisteredLoop<AsioLoop> KIND("Asio");

}  // namespace
