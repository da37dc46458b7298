// What a loop cannot do without, written by hand: ppoll alone, ppoll with a pipe through which other threads
// wake it, and epoll with such a pipe.

#include <poll.h>
#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <map>

#include "bench/event_loop.h"
#include "lib/platform/errno_exception.h"
#include "lib/platform/monotonic_time.h"
#include "lib/platform/poll_waker.h"
#include "lib/platform/unique_fd.h"

namespace {

/// Timers and the loop itself; those that derive from it wait.
class BareLoop : public Loop {
public:
    void AddTimer(Alarm& alarm, std::int64_t deadline) override { m_alarms.emplace(deadline, &alarm); }

    void Run() override {
        while (!m_stopped) {
            timespec timeout{};
            if (!m_alarms.empty()) {
                timeout = RemainingUntil(m_alarms.begin()->first);
            }
            Wait(m_alarms.empty() ? nullptr : &timeout);
            FireAlarms();
        }
    }

    void Stop() override { m_stopped = true; }

protected:
    /// Waits, and serves who is ready.
    virtual void Wait(const timespec* timeout) = 0;

private:
    static timespec RemainingUntil(std::int64_t deadline) {
        const std::int64_t remaining =
            std::max<std::int64_t>(0, deadline - strata::get_monotonic_nanoseconds());
        return {remaining / strata::NANOSECONDS_PER_SECOND, remaining % strata::NANOSECONDS_PER_SECOND};
    }

    void FireAlarms() {
        while (!m_alarms.empty() && m_alarms.begin()->first <= strata::get_monotonic_nanoseconds()) {
            Alarm* const alarm = m_alarms.begin()->second;
            m_alarms.erase(m_alarms.begin());
            alarm->OnTime();
        }
    }

    std::multimap<std::int64_t, Alarm*> m_alarms;  // by deadline
    bool m_stopped = false;
};

class PpollLoop : public BareLoop {
public:
    void Watch(Client& client) override {
        m_clients.push_back(&client);
        m_set.push_back({.fd = client.GetFd(), .events = POLLIN, .revents = 0});
    }

    void Call(Client&) override {}
    bool CanBeCalled() const override { return false; }

private:
    void Wait(const timespec* timeout) override {
        if (ppoll(m_set.data(), m_set.size(), timeout, nullptr) < 0) {
            throw ErrnoException(errno, "ppoll");
        }
        for (std::size_t i = 0; i < m_set.size(); ++i) {
            if (m_set[i].revents != 0) {
                m_clients[i]->OnReady();
            }
        }
    }

    std::vector<Client*> m_clients;
    std::vector<pollfd> m_set;
};

/// A pipe through which other threads call.
class WakePipe : public Client {
public:
    void Call(Client& client) {
        m_calls.Add(client);
        m_waker.Wake();
    }

    int GetFd() const override { return m_waker.GetReadFd(); }

    void OnReady() override {
        m_waker.Acknowledge();
        m_calls.Serve();
    }

private:
    PollWaker m_waker;
    CallQueue m_calls;
};

class PpollWithPipeLoop : public PpollLoop {
public:
    PpollWithPipeLoop() { Watch(m_pipe); }
    void Call(Client& client) override { m_pipe.Call(client); }
    bool CanBeCalled() const override { return true; }

private:
    WakePipe m_pipe;
};

class EpollLoop : public BareLoop {
public:
    EpollLoop() : m_epoll(epoll_create1(EPOLL_CLOEXEC)) {
        if (m_epoll.Get() < 0) {
            throw ErrnoException(errno, "epoll_create1");
        }
        EpollLoop::Watch(m_pipe);
    }

    void Watch(Client& client) override {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.ptr = &client;
        if (epoll_ctl(m_epoll.Get(), EPOLL_CTL_ADD, client.GetFd(), &event) != 0) {
            throw ErrnoException(errno, "epoll_ctl");
        }
    }

    void Call(Client& client) override { m_pipe.Call(client); }

private:
    void Wait(const timespec* timeout) override {
        std::array<epoll_event, 64> events;
        const int ready =
            epoll_pwait2(m_epoll.Get(), events.data(), static_cast<int>(events.size()), timeout, nullptr);
        if (ready < 0) {
            throw ErrnoException(errno, "epoll_pwait2");
        }
        for (int i = 0; i < ready; ++i) {
            static_cast<Client*>(events[static_cast<std::size_t>(i)].data.ptr)->OnReady();
        }
    }

    strata::UniqueFd m_epoll;
    WakePipe m_pipe;
};

const RegisteredLoop<PpollLoop> PPOLL_KIND("ppoll");
const RegisteredLoop<PpollWithPipeLoop> PPOLL_WITH_PIPE_KIND("ppoll+pipe");
const RegisteredLoop<EpollLoop> EPOLL_KIND("epoll");

}  // namespace
